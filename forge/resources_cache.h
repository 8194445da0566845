// Texts and buffers that are lent across the C interface.
//
// A producer opens a chunk, appends copies and passes the pointers on with the chunk id. The
// receiver copies what it needs and gives the id back, which frees the whole chunk.
//
//   const uint32_t chunk = cache.CreateChunk();
//   slots.OnMessage(user_data, cache.AppendStr(chunk, text), chunk);
//   ...
//   cache.RemoveChunk(chunk);  // When the receiver has given it back.
//
// Threads:   any. Every operation holds the cache's only mutex from its beginning to its end.
// Ownership: the cache owns the copies. They stay at their addresses until their chunk is removed
//            or the cache is destroyed.
// Errors:    an unknown chunk id is one error line and a null or false result. A null text with a
//            length is a logic error of the caller and throws as std::string does.
#pragma once

#include <cstdint>
#include <deque>
#include <list>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>

#include "forge/buffer.h"
#include "forge/export.h"
#include "forge/forge_capi.h"
#include "forge/object.h"

namespace forge {

// The open chunks of one lender.
class FORGE_EXPORT ResourcesCache : public details::CounterClient {
 public:
  // The number of chunks that may be open at once. A look-up goes through all chunks, because
  // usually few are open. The limit bounds the time and the memory when a receiver never gives a
  // chunk back.
  static constexpr std::size_t kMaxChunks = 8192;

  // Opens an empty chunk and returns its id. 0, and one error line, when kMaxChunks are open.
  uint32_t CreateChunk();

  // Copies the text into the chunk and returns the copy, NUL-terminated. Null, and one error line,
  // when the chunk is not open. The second form does the same for two texts.
  const char* AppendStr(uint32_t chunk_id, std::string_view text);
  std::pair<const char*, const char*> AppendStr(uint32_t chunk_id, std::string_view first,
                                                std::string_view second);

  // Moves the text into the chunk; the same result. A text that is moved is not copied.
  const char* TakeStr(uint32_t chunk_id, std::string&& text);

  // Moves the buffer into the chunk and describes it in a view of `size` declared bytes. False, and
  // one error line, when the chunk is not open or the view is null; the buffer keeps its content
  // then.
  bool AppendBuffer(uint32_t chunk_id, Buffer&& buffer, ForgeBufferView* view, uint32_t size);

  // Frees all copies of the chunk, and with it the id; every pointer into the chunk dangles
  // afterwards. The memory of a large text may be kept for the next one (forge/spare_texts.h).
  void RemoveChunk(uint32_t chunk_id);

  // The same, but a chunk that is not open is only a false result, without a line. For a producer
  // that cannot know whether the receiver has given the chunk back.
  bool RemoveChunkIfOpen(uint32_t chunk_id);

 private:
  struct Chunk {
    uint32_t id = 0;               // 0: a free slot.
    std::list<std::string> texts;  // Lists: elements stay put, and an empty one costs nothing.
    std::list<Buffer> buffers;
  };

  // The caller holds mutex_.
  Chunk* FindChunkUnsafe(uint32_t chunk_id);  // Also finds free slots, by id 0.
  Chunk* GetChunkUnsafe(uint32_t chunk_id);   // Null and one error line when it is not open.
  static void RemoveUnsafe(Chunk* chunk);

  std::mutex mutex_;
  std::deque<Chunk> chunks_;  // Guarded by mutex_. A deque, because elements must never move.
};

// A chunk that is open as long as the guard lives. Its receiver must copy what it needs during the
// call, and must not give the chunk back.
class FORGE_EXPORT ResourcesCacheGuard {
 public:
  // Borrows the cache for the guard's life. If no chunk can be opened, every operation fails.
  explicit ResourcesCacheGuard(ResourcesCache& cache);
  ~ResourcesCacheGuard();
  ResourcesCacheGuard(const ResourcesCacheGuard&) = delete;
  ResourcesCacheGuard& operator=(const ResourcesCacheGuard&) = delete;

  // The operations of the cache, on the guard's chunk.
  const char* AppendStr(std::string_view text);
  std::pair<const char*, const char*> AppendStr(std::string_view first, std::string_view second);
  bool AppendBuffer(Buffer&& buffer, ForgeBufferView* view, uint32_t size);

 private:
  ResourcesCache& cache_;
  const uint32_t chunk_id_;
};

}  // namespace forge
