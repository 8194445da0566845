// Runs a fuzzing target over the files of a directory, with any compiler: what was found once stays
// mended.
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int main(int argc, char** argv) {
  int count = 0;
  for (const auto& entry : std::filesystem::directory_iterator(argc > 1 ? argv[1] : "")) {
    std::ifstream file(entry.path(), std::ios::binary);
    const std::vector<uint8_t> bytes(std::istreambuf_iterator<char>(file), {});
    std::fprintf(stderr, "%s\n", entry.path().c_str());  // The last one is the culprit.
    LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
    ++count;
  }
  return count == 0;
}
