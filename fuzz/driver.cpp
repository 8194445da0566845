// The limits, and the entry and the main program of every target.
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <new>

#include "fuzz/input.h"

constexpr size_t kMiB = 1 << 20;

static size_t limit = SIZE_MAX;
static bool refused = false;

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

// The forms for arrays call these, or come in pairs of their own. The form without exceptions is
// libFuzzer's.
void* operator new(size_t size) {
  void* block = size <= limit ? std::malloc(size) : nullptr;
  if (!block) Refuse();
  return block;
}
void* operator new(size_t size, const std::nothrow_t&) noexcept { return std::malloc(size); }
void operator delete(void* block) noexcept { std::free(block); }
void operator delete(void* block, size_t) noexcept { std::free(block); }

// Limits anew what is done from now on. Each failed read writes a line, so that limit bounds the
// time of a decoder that believes what it reads. The streams of both outputs write nothing.
static void Limit(size_t most_bytes = 256 * kMiB, size_t most_lines = kMiB) {
  std::cout.rdbuf(nullptr);
  std::cerr.rdbuf(&lines);  // Clears its state, too.
  std::cerr.exceptions(std::ios::badbit);
  lines.left = most_lines;
  refused = false;
  limit = most_bytes;
}

bool fuzz::IsLight(const forge::Buffer& bytes) {
  const auto run = [&] { cw::EncodableValue::Deserialize(bytes).Serialize(); };
  Limit(4 * kMiB, 100);
  const bool is_light = Try(run);
  Limit();
  if (is_light || !IsAdmissible(bytes)) return is_light;
  static unsigned heavy = 0;
  if (!TAVO_FUZZ || heavy++ % 1024 == 0) run();  // A search goes on with the light ones.
  return false;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Limit();
  const std::clock_t begin = std::clock();
  fuzz::Run({data, size});
  assert(!refused);  // Whether or not the code under test told anybody.
  assert(!TAVO_FUZZ || std::clock() - begin < CLOCKS_PER_SEC);
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
