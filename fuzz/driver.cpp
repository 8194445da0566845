// The limits, and the entry and the main program of every target.
#include <malloc.h>

#include <atomic>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iostream>

#include "fuzz/input.h"

static std::atomic<size_t> live{0};
static std::atomic<size_t> limit{SIZE_MAX};
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
  const bool fits = live <= limit && size <= limit - live;
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

void fuzz::Limit(size_t most_bytes, size_t most_lines) {
  std::cout.rdbuf(nullptr);
  std::cerr.rdbuf(&lines);  // Clears its state, too.
  std::cerr.exceptions(std::ios::badbit);
  lines.left = most_lines;
  refused = false;
  limit = live + most_bytes;
  begin = std::clock();
}

void fuzz::CheckLimits() {
  assert(!refused);
  assert(!TAVO_FUZZ || std::clock() - begin < CLOCKS_PER_SEC);
}

bool fuzz::IsLight(const forge::Buffer& bytes) {
  const auto run = [&] { cw::EncodableValue::Deserialize(bytes).Serialize(); };
  Limit(size_t{4} << 20, 100);
  const bool is_light = Try(run);
  Limit();
  static unsigned heavy = 0;
  if (is_light || (TAVO_FUZZ && heavy++ % 1024 != 0)) return is_light;
  const bool has_worked = Try(run);
  assert(!IsAdmissible(bytes) || has_worked);
  if (IsAdmissible(bytes)) CheckLimits();
  Limit();
  return false;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::Limit();
  fuzz::Run({data, size});
  fuzz::CheckLimits();
  return 0;
}

#if !TAVO_FUZZ
// Without libFuzzer, with any compiler, the inputs are the files of a directory: what was found
// once stays mended.
int main(int argc, char** argv) {
  int count = 0;
  for (const auto& entry : std::filesystem::directory_iterator(argv[argc - 1])) {
    std::ifstream file(entry.path(), std::ios::binary);
    const std::vector<uint8_t> bytes(std::istreambuf_iterator<char>(file), {});
    std::fprintf(stderr, "%s\n", entry.path().c_str());  // The last one is the culprit.
    LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
    ++count;
  }
  return count == 0;
}
#endif
