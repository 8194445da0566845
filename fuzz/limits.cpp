#include <malloc.h>
#include <time.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <new>
#include <streambuf>

#include "fuzz/input.h"

namespace {

std::atomic<size_t> live{0};
std::atomic<size_t> most_live{SIZE_MAX};
std::atomic<bool> refused{false};

void* Allocate(size_t size) {
  const bool fits = live <= most_live && size <= most_live - live;
  void* block = fits ? std::malloc(size ? size : 1) : nullptr;
  if (!block) {
    refused = true;
    throw std::bad_alloc();
  }
  live += malloc_usable_size(block);
  return block;
}

void Free(void* block) {
  if (block) live -= malloc_usable_size(block);
  std::free(block);
}

// Takes what is written and forgets it.
class LineCounter final : public std::streambuf {
 public:
  size_t lines = 0;
  size_t most = SIZE_MAX;

 private:
  int overflow(int character) override {
    Count();
    return character == traits_type::eof() ? 0 : character;
  }
  std::streamsize xsputn(const char*, std::streamsize size) override {
    Count();
    return size;
  }
  void Count() {
    if (++lines > most) throw fuzz::TooManyLines();
  }
};

constexpr double kMostSeconds = 1;

double GetSecondsOfThisProcess() {
  timespec time{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

LineCounter& GetLineCounter() {
  // Never destroyed: the streams are flushed once more after the last static object is gone.
  static LineCounter& counter = *new LineCounter;
  return counter;
}

}  // namespace

void* operator new(size_t size) { return Allocate(size); }
void* operator new[](size_t size) { return Allocate(size); }
void* operator new(size_t size, const std::nothrow_t&) noexcept {
  try {
    return Allocate(size);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}
void* operator new[](size_t size, const std::nothrow_t& tag) noexcept {
  return operator new(size, tag);
}
void operator delete(void* block) noexcept { Free(block); }
void operator delete[](void* block) noexcept { Free(block); }
void operator delete(void* block, size_t) noexcept { Free(block); }
void operator delete[](void* block, size_t) noexcept { Free(block); }

namespace fuzz {

void Fail(const char* condition, const char* file, int line) {
  std::fprintf(stderr, "%s:%d: does not hold: %s\n", file, line, condition);
  std::abort();
}

Limits::Limits(size_t most_bytes, size_t most_lines) {
  std::cout.rdbuf(nullptr);
  std::cerr.rdbuf(&GetLineCounter());  // Clears its state, too.
  std::cerr.exceptions(std::ios::badbit);
  std::cerr << std::nounitbuf;
  GetLineCounter().lines = 0;
  GetLineCounter().most = most_lines;
  refused = false;
  most_live = live + most_bytes;
  begin_ = GetSecondsOfThisProcess();
}

bool Limits::WereKept() const {
  const double seconds = TAVO_FUZZ ? GetSecondsOfThisProcess() - begin_ : 0;
  return !refused && GetLineCounter().lines <= GetLineCounter().most && seconds < kMostSeconds;
}

}  // namespace fuzz
