#include "tools/json_argument.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "desk/common/json_text.h"
#include "tools/tavo_commands.h"

namespace tools {
namespace {

std::string NameOf(const std::string& argument) {
  if (argument == "-") return "standard input";
  return !argument.empty() && argument[0] == '@' ? argument.substr(1) : "the JSON";
}

}  // namespace

std::string ReadArgument(const std::string& argument) {
  const bool is_file = !argument.empty() && argument[0] == '@';
  if (argument != "-" && !is_file) return argument;
  std::ifstream file;
  if (is_file) file.open(argument.substr(1), std::ios::binary);
  std::istream& stream = is_file ? file : std::cin;
  std::string text;
  if (stream) std::getline(stream, text, '\0');
  if (stream.bad() || (is_file && !file.is_open())) {
    throw CommandError(kWrongUsage, NameOf(argument) + ": " + std::strerror(errno));
  }
  if (!stream.eof()) text += '\0';  // It is refused with the text.
  return text;
}

desk::Json ReadJsonArgument(const std::string& argument) {
  if (argument.empty()) return nullptr;
  const std::string text = ReadArgument(argument);
  try {
    return desk::ParseJson(text);
  } catch (const std::runtime_error& error) {
    throw CommandError(kWrongUsage, NameOf(argument) + ": " + error.what());
  }
}

cw::EncodableValue ReadValueArgument(const std::string& argument) {
  try {
    return desk::FromJson(ReadJsonArgument(argument));
  } catch (const CommandError&) {
    throw;
  } catch (const std::runtime_error& error) {
    throw CommandError(kWrongUsage, NameOf(argument) + ": " + error.what());
  }
}

}  // namespace tools
