// Memory of large texts that is kept for the next message. The allocator gives large blocks back to
// the kernel and fetches them again page by page, which costs more than to fill them.
//
//   std::string text = forge::SpareTexts::Get().Take(size);
//   text.resize(size);  // Its first bytes may be those of an earlier text.
//   ...
//   forge::SpareTexts::Get().Keep(std::move(text));
//
// The process keeps kMaxBlocks blocks of kMaxKept bytes at most. It keeps no block of less than
// kMinKept bytes, because the allocator is fast for these.
//
// Threads: any.
// Errors:  none; a text that is not kept is freed.
#pragma once

#include <array>
#include <cstddef>
#include <mutex>
#include <string>

namespace forge {

class SpareTexts {
 public:
  static constexpr std::size_t kMinKept = std::size_t{32} << 10;
  static constexpr std::size_t kMaxKept = std::size_t{1} << 20;
  static constexpr std::size_t kMaxSurplus = 4;  // A block has at most that many times the size.
  static constexpr std::size_t kMaxBlocks = 3;   // A message in and one out need as many at once.

  // The texts of the process. They are never destroyed: messages may come while it exits.
  static SpareTexts& Get();

  // Returns a kept text whose memory has room for `size` bytes, or an empty text.
  std::string Take(std::size_t size);

  // Keeps the text's memory, if need be in the place of a smaller one.
  void Keep(std::string&& text) noexcept;

 private:
  std::mutex mutex_;
  std::array<std::string, kMaxBlocks> kept_;  // Guarded by mutex_. A free place is an empty text.
};

}  // namespace forge
