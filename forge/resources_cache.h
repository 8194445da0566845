// Texts and buffers lent across the C interface.
//
// A producer opens a chunk, appends copies and passes the pointers on with the chunk id; the
// receiver copies what it needs and gives the id back, which frees the whole chunk.
//
// Threads: any. Every operation holds the cache's one mutex throughout.
// Errors:  an unknown chunk id is one error line and a null or false result. A null text with a
//          length is a logic error of the caller and throws as std::string does.
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

class FORGE_EXPORT ResourcesCache : public details::CounterClient {
 public:
  // Looking a chunk up walks them all: few are open at a time. The bound keeps a receiver that
  // never returns one from growing the walk and the memory without end.
  static constexpr std::size_t kMaxChunks = 8192;

  // Opens an empty chunk and returns its id; 0 (and one error line) when kMaxChunks are open.
  uint32_t CreateChunk();

  // Copies the text into the chunk and returns the copy, NUL-terminated; null if the chunk is not
  // open. The chunk owns the copy, which stays where it is until the chunk is removed.
  const char* AppendStr(uint32_t chunk_id, std::string_view text);
  std::pair<const char*, const char*> AppendStr(uint32_t chunk_id, std::string_view first,
                                                std::string_view second);

  // Moves the buffer into the chunk and describes it in a view of `size` declared bytes; false if
  // the chunk is not open or the view is null.
  bool AppendBuffer(uint32_t chunk_id, Buffer&& buffer, ForgeBufferView* view, uint32_t size);

  // Frees all that the chunk holds; every pointer handed out for it dangles afterwards.
  void RemoveChunk(uint32_t chunk_id);

  // The same, but only false when the chunk is not open: for a producer that cannot tell whether
  // the receiver returned it.
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
  static const char* AppendUnsafe(Chunk& chunk, std::string_view text);
  static void RemoveUnsafe(Chunk* chunk);

  std::mutex mutex_;
  std::deque<Chunk> chunks_;  // Guarded by mutex_. A deque, because elements must never move.
};

// A chunk that lives as long as a scope.
class FORGE_EXPORT ResourcesCacheGuard {
 public:
  explicit ResourcesCacheGuard(ResourcesCache& cache);
  ~ResourcesCacheGuard();
  ResourcesCacheGuard(const ResourcesCacheGuard&) = delete;
  ResourcesCacheGuard& operator=(const ResourcesCacheGuard&) = delete;

  const char* AppendStr(std::string_view text);
  std::pair<const char*, const char*> AppendStr(std::string_view first, std::string_view second);
  bool AppendBuffer(Buffer&& buffer, ForgeBufferView* view, uint32_t size);

 private:
  ResourcesCache& cache_;
  const uint32_t chunk_id_;
};

}  // namespace forge
