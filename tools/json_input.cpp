#include "tools/json_input.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>
#include <stdexcept>

#include "tools/tavo_commands.h"

namespace tools {
namespace {

constexpr size_t kMaxInput = size_t{64} << 20;  // Twice the largest line of a socket.

std::string ReadAll(const std::string& name, std::istream& stream) {
  std::string text(kMaxInput + 1, '\0');
  errno = 0;
  stream.read(text.data(), static_cast<std::streamsize>(text.size()));
  if (stream.bad() || (!stream.eof() && stream.fail())) {
    throw CommandError(kWrongUsage, name + ": " + std::strerror(errno));
  }
  text.resize(static_cast<size_t>(stream.gcount()));
  if (text.size() > kMaxInput) {
    throw CommandError(kWrongUsage, name + ": it has more than 64 MiB");
  }
  return text;
}

std::string ReadFile(const std::string& name) {
  std::ifstream file(name, std::ios::binary);
  if (!file) throw CommandError(kWrongUsage, name + ": " + std::strerror(errno));
  return ReadAll(name, file);
}

desk::Json ParseInput(const std::string& name, const std::string& text) {
  try {
    return ParseJson(text);
  } catch (const std::runtime_error& error) {
    throw CommandError(kWrongUsage, name + ": " + error.what());
  }
}

}  // namespace

desk::Json ParseJson(const std::string& text) {
  desk::Json json;
  try {
    json = desk::Json::parse(text);
  } catch (const desk::Json::exception& error) {
    const std::string reason = error.what();  // "[json.exception.KIND.NUMBER] REASON".
    throw std::runtime_error(reason.substr(reason.find("] ") + 2));
  }
  desk::FromJson(json);  // Throws when it nests too deep.
  return json;
}

desk::Json ReadJson(const std::string& argument) {
  if (argument.empty()) return nullptr;
  if (argument == "-") return ParseInput("standard input", ReadAll("standard input", std::cin));
  if (argument[0] == '@') return ParseInput(argument.substr(1), ReadFile(argument.substr(1)));
  return ParseInput("PARAMS", argument);
}

}  // namespace tools
