#include <malloc.h>

#include <atomic>
#include <cstdlib>
#include <ctime>
#include <iostream>
#include <new>

#include "fuzz/input.h"

static std::atomic<size_t> live{0};
static std::atomic<size_t> most_live{SIZE_MAX};
static std::atomic<bool> refused{false};
static std::clock_t begin = 0;

[[noreturn]] static void Refuse() {
  refused = true;
  throw std::bad_alloc();
}

// Counts the lines that are written, and forgets them.
struct LineCounter final : std::streambuf {
  int overflow(int character) override {
    if (character == '\n' && left-- == 0) Refuse();
    return character;
  }

  size_t left = SIZE_MAX;
};

// Never destroyed: the streams are flushed once more after the last static object is gone.
static LineCounter& lines = *new LineCounter;

// The forms for arrays call these, or come in pairs of their own.
void* operator new(size_t size) {
  const bool fits = live <= most_live && size <= most_live - live;
  void* block = fits ? std::malloc(size) : nullptr;
  if (!block) Refuse();
  live += malloc_usable_size(block);
  return block;
}
void* operator new(size_t size, const std::nothrow_t&) noexcept {
  void* block = nullptr;
  fuzz::Try([&] { block = operator new(size); });
  return block;
}
void operator delete(void* block) noexcept {
  live -= malloc_usable_size(block);
  std::free(block);
}
void operator delete(void* block, size_t) noexcept { operator delete(block); }

void fuzz::Fail(const char* condition, const char* file, int line) {
  std::fprintf(stderr, "%s:%d: does not hold: %s\n", file, line, condition);
  std::abort();
}

void fuzz::Limit(size_t most_bytes, size_t most_lines) {
  std::cout.rdbuf(nullptr);
  std::cerr.rdbuf(&lines);  // Clears its state, too.
  std::cerr.exceptions(std::ios::badbit);
  lines.left = most_lines;
  refused = false;
  most_live = live + most_bytes;
  begin = std::clock();
}

void fuzz::CheckLimits() {
  FUZZ_CHECK(!refused);
  FUZZ_CHECK(!TAVO_FUZZ || std::clock() - begin < CLOCKS_PER_SEC);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::Limit();
  fuzz::Run({data, size});
  fuzz::CheckLimits();
  return 0;
}
