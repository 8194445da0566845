#include "desk/runtime_manager/heap.h"

#include <cstdlib>

namespace desk {
namespace {

constexpr size_t kLargestBlock = 8 << 20;

// glibc raises its limits to the size of a block that it has mapped, and twice that, when the block
// is freed.
bool FreeLargeBlock() {
  void* volatile block = std::malloc(kLargestBlock);  // Volatile: the pair of calls must stay.
  std::free(block);
  return true;
}

}  // namespace

void PrimeHeap() { [[maybe_unused]] static const bool is_primed = FreeLargeBlock(); }

}  // namespace desk
