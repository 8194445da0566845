#include <malloc.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <iostream>
#include <new>
#include <streambuf>

#include "fuzz/input.h"

namespace {

std::atomic<size_t> live{0};
std::atomic<size_t> most_live{SIZE_MAX};
std::atomic<bool> refused{false};

// Counts what is written, and forgets it.
class LineCounter final : public std::streambuf {
 public:
  size_t left = SIZE_MAX;

 private:
  int overflow(int character) override {
    Count();
    return traits_type::not_eof(character);
  }
  std::streamsize xsputn(const char*, std::streamsize size) override {
    Count();
    return size;
  }
  void Count() {
    if (left == 0) {
      refused = true;
      throw std::bad_alloc();
    }
    --left;
  }
};

// Never destroyed: the streams are flushed once more after the last static object is gone.
LineCounter& line_counter = *new LineCounter;

double GetSecondsOfThisProcess() { return static_cast<double>(std::clock()) / CLOCKS_PER_SEC; }

}  // namespace

// The forms for arrays call these, or come in pairs of their own.
void* operator new(size_t size) {
  const bool fits = live <= most_live && size <= most_live - live;
  void* block = fits ? std::malloc(size ? size : 1) : nullptr;
  if (!block) {
    refused = true;
    throw std::bad_alloc();
  }
  live += malloc_usable_size(block);
  return block;
}
void* operator new(size_t size, const std::nothrow_t&) noexcept {
  void* block = nullptr;
  fuzz::Limits::Try([&] { block = operator new(size); });
  return block;
}
void operator delete(void* block) noexcept {
  if (block) live -= malloc_usable_size(block);
  std::free(block);
}
void operator delete(void* block, size_t) noexcept { operator delete(block); }

namespace fuzz {

void Fail(const char* condition, const char* file, int line) {
  std::fprintf(stderr, "%s:%d: does not hold: %s\n", file, line, condition);
  std::abort();
}

Limits::Limits(size_t most_bytes, size_t most_lines) : begin_(GetSecondsOfThisProcess()) {
  std::cout.rdbuf(nullptr);
  std::cerr.rdbuf(&line_counter);  // Clears its state, too.
  std::cerr.exceptions(std::ios::badbit);
  std::cerr << std::nounitbuf;
  line_counter.left = most_lines;
  refused = false;
  most_live = live + most_bytes;
}

bool Limits::WereKept() const {
  constexpr double kMostSeconds = TAVO_FUZZ ? 1 : 3600;
  return !refused && GetSecondsOfThisProcess() - begin_ < kMostSeconds;
}

}  // namespace fuzz
