// Writes the inputs of a corpus (fuzz/corpus/TARGET.txt), one a line, as one file each.
//
//   unpack CORPUS DIRECTORY
//
// A line is the input's name and what it holds; "#" begins a comment.
//   0c 01           two bytes
//   'text'          the bytes of a text
//   "text"          an encoded text: 07, its size, its bytes
//   1024*( 0c 01 )  the same 1,024 times
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <sstream>

// Reads up to the end, or to the parenthesis that closes what is repeated.
static std::string Expand(std::istream& text) {
  std::string bytes, word;
  while ((text >> std::ws).good()) {
    const auto first = static_cast<char>(text.peek());
    if (first == '\'' || first == '"') {
      text >> std::quoted(word, first, '\0');
      if (first == '"') bytes += {'\7', static_cast<char>(word.size())};
      bytes += word;
      continue;
    }
    text >> word;
    if (word == ")") break;
    if (word.back() == '(') {
      const std::string part = Expand(text);
      for (int times = std::stoi(word); times > 0; --times) bytes += part;
    } else {
      bytes += static_cast<char>(std::stoi(word, nullptr, 16));
    }
  }
  return bytes;
}

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  const std::filesystem::path directory = argv[2];
  std::filesystem::remove_all(directory);
  std::filesystem::create_directories(directory);
  std::ifstream corpus(argv[1]);
  for (std::string line, name; std::getline(corpus, line);) {
    std::istringstream text(line);
    if (text >> name && name[0] != '#') std::ofstream(directory / name) << Expand(text);
  }
}
