#include "bench/memory.h"

#include <malloc.h>

#include <atomic>
#include <cstddef>
#include <fstream>
#include <limits>
#include <string>

// The allocator of the C library under the names by which it stays available.
extern "C" {
void* __libc_malloc(std::size_t size);                 // NOLINT(bugprone-reserved-identifier)
void* __libc_calloc(std::size_t n, std::size_t size);  // NOLINT(bugprone-reserved-identifier)
void* __libc_realloc(void* block, std::size_t size);   // NOLINT(bugprone-reserved-identifier)
}

namespace {

std::atomic<int64_t> allocations{0};

// Loses a count when two threads allocate at once: a locked addition each time would be measured.
void CountAllocation() {
  allocations.store(allocations.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
}

// The number in the file's line "NAME: NUMBER kB", in bytes; 0 if there is none.
int64_t ReadKilobytes(const char* path, const std::string& name) {
  std::ifstream file(path);
  for (std::string word; file >> word;) {
    int64_t kib = 0;
    if (word == name + ":" && file >> kib) return kib * 1024;
    file.ignore(std::numeric_limits<std::streamsize>::max(), '\n');
  }
  return 0;
}

}  // namespace

extern "C" {

void* malloc(std::size_t size) {
  CountAllocation();
  return __libc_malloc(size);
}

void* calloc(std::size_t n, std::size_t size) {
  CountAllocation();
  return __libc_calloc(n, size);
}

void* realloc(void* block, std::size_t size) {
  CountAllocation();
  return __libc_realloc(block, size);
}

}  // extern "C"

namespace bench {

Memory GetMemory() {
  const auto heap = mallinfo2();
  return {ReadKilobytes("/proc/self/status", "VmHWM"),
          ReadKilobytes("/proc/self/smaps_rollup", "Private_Dirty"),
          static_cast<int64_t>(heap.uordblks + heap.hblkhd), allocations.load()};
}

}  // namespace bench
