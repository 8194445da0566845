// tavo bind: code and a page from the description of an interface.

#include <cerrno>
#include <cstring>
#include <fstream>
#include <memory>

#include "tools/tavo_bind_writers.h"
#include "tools/tavo_commands.h"

namespace tools {
namespace {

constexpr char kAbout[] =
    "Writes a C++ header and a page in Markdown from the description of an interface: its methods\n"
    "and notifications, and their types. Without --header and --page the description is only\n"
    "checked. docs/bind.md shows a description.";
constexpr char kFooter[] =
    "Example: tavo bind notes.json --header notes.h --page notes.md\n"
    "\n"
    "Ends with 0; 1 for a description that makes no sense or a file that cannot be read or\n"
    "written; 2 for a wrong command line.";

struct Options {
  std::string description;
  std::string header;
  std::string page;
  std::string name_space;
};

[[noreturn]] void FailOnFile(const std::string& path) {
  throw CommandError(kFailed, path + ": " + std::strerror(errno));
}

std::string ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) FailOnFile(path);
  std::string text;
  std::getline(file, text, '\0');  // A description has no NUL.
  if (file.bad()) FailOnFile(path);
  return text;
}

void WriteFile(const std::string& path, const std::string& text) {
  std::ofstream file(path, std::ios::binary);
  file << text;
  file.close();
  if (!file) FailOnFile(path);
}

// The path is printed as the user wrote it; the outputs name the file alone.
void Run(const Options& options) {
  Description description;
  const std::string text = ReadFile(options.description);
  try {
    description = ReadDescription(text);
  } catch (const std::runtime_error& error) {
    throw CommandError(kFailed, options.description + ": " + error.what());
  }
  const std::string source = options.description.substr(options.description.rfind('/') + 1);
  const std::string& name_space =
      options.name_space.empty() ? description.name : options.name_space;
  if (!options.header.empty()) {
    WriteFile(options.header, WriteHeader(description, source, name_space));
  }
  if (!options.page.empty()) WriteFile(options.page, WritePage(description, source));
}

// Names with :: between them.
std::string CheckNamespace(const std::string& text) {
  size_t begin = 0;
  for (size_t end = 0; end != std::string::npos; begin = end + 2) {
    end = text.find("::", begin);
    if (!IsUsableName(text.substr(begin, end - begin))) return '"' + text + "\" is no namespace";
  }
  return "";
}

}  // namespace

void AddBind(desk::CommandLine& program) {
  const auto options = std::make_shared<Options>();
  desk::Command bind = program.AddCommand("bind", kAbout, kFooter);
  bind.AddArgument("DESCRIPTION", &options->description, "The description, in JSON").Require();
  bind.AddOption("--header", &options->header, "FILE", "Write the C++ header to this file");
  bind.AddOption("--page", &options->page, "FILE", "Write the page to this file");
  bind.AddOption("--namespace", &options->name_space, "NAME",
                 "The namespace of the code; the description's name if it is not given")
      .Verify(CheckNamespace);
  bind.OnRun([options] { Run(*options); });
}

}  // namespace tools
