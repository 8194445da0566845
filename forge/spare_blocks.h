// Memory of large texts and byte lists that is kept for the next message. The allocator gives large
// blocks back to the kernel and fetches them again page by page, which costs more than to fill
// them.
//
//   std::string text = forge::SpareTexts().Take(size);
//   text.resize(size);  // Costs nothing if the kept text was as large.
//   ...
//   forge::SpareTexts().Keep(std::move(text));
//
// The process keeps two texts and two byte lists of kMaxKept bytes each at most, and nothing below
// kMinKept bytes, where the allocator is fast.
//
// Threads: any.
// Errors:  none; what is not kept is freed.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace forge {

template <typename Container>
class SpareBlocks {
 public:
  static constexpr std::size_t kMinKept = std::size_t{32} << 10;
  static constexpr std::size_t kMaxKept = std::size_t{1} << 20;

  // Returns the block that was kept last, with its old content. An empty container if there is
  // none, and if a block of `size` bytes would not be kept.
  Container Take(std::size_t size) {
    if (size < kMinKept || size > kMaxKept) return {};
    const std::lock_guard lock(mutex_);
    return count_ == 0 ? Container() : std::move(kept_[--count_]);
  }

  void Keep(Container&& block) noexcept {
    if (block.capacity() < kMinKept || block.capacity() > kMaxKept) return;
    const std::lock_guard lock(mutex_);
    if (count_ < kept_.size()) kept_[count_++] = std::move(block);
  }

 private:
  std::mutex mutex_;
  std::array<Container, 2> kept_;  // Guarded by mutex_. The first count_ are kept.
  std::size_t count_ = 0;          // Guarded by mutex_.
};

// The blocks of the process. They are never destroyed: messages may still come while it exits.
SpareBlocks<std::string>& SpareTexts();
SpareBlocks<std::vector<uint8_t>>& SpareBytes();

}  // namespace forge
