// tavo new: a project that builds and tests itself.

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

#include "tools/printable.h"
#include "tools/project_templates.h"
#include "tools/tavo_commands.h"

namespace tools {
namespace {

namespace fs = std::filesystem;

constexpr char kAbout[] = "Writes a project that builds and tests itself";
constexpr char kFooter[] =
    "KIND is plugin (it answers Dart), task (others start it and ask it), or app (a plug-in that "
    "asks a task).\n"
    "The directory NAME is made here. In it `cmake --workflow --preset default` builds and "
    "tests.\n\n"
    "Example:\n"
    "  tavo new app camera";
constexpr size_t kMaxName = 64;

struct Options {
  std::string kind;
  std::string name;
};

std::string CheckKind(const std::string& kind) {
  return kind == "plugin" || kind == "task" || kind == "app"
             ? ""
             : '"' + kind + "\" is not plugin, task or app";
}

// It becomes a file's, a task's and a namespace's name.
std::string CheckName(const std::string& name) {
  const auto is_allowed = [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_';
  };
  const bool is_name = !name.empty() && name.size() <= kMaxName && name[0] >= 'a' &&
                       name[0] <= 'z' && std::all_of(name.begin(), name.end(), is_allowed);
  return is_name ? ""
                 : '"' + name + "\" is no name: small letters, digits and _, a letter first, are";
}

std::string Replace(std::string text, const std::string& from, const std::string& to) {
  for (size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size()) {
    text.replace(at, from.size(), to);
  }
  return text;
}

// camera_view -> CameraView
std::string ToTypeName(const std::string& name) {
  std::string type;
  bool begins_word = true;
  for (const char c : name) {
    if (c != '_') type += begins_word ? static_cast<char>(std::toupper(c)) : c;
    begins_word = c == '_';
  }
  return type;
}

// Where this program lies in bin/, the package is, too: in an installation and in a build.
std::string FindPackage() {
  const fs::path prefix = fs::read_symlink("/proc/self/exe").parent_path().parent_path();
  return Replace(Replace(prefix.string(), "\\", "\\\\"), "\"", "\\\"");
}

void WriteFile(const fs::path& path, const std::string& text) {
  std::ofstream file(path, std::ios::binary);
  file << text;
  file.close();
  if (!file) throw CommandError(kFailed, path.string() + " cannot be written");
}

void Run(const Options& options) {
  std::error_code error;
  if (!fs::create_directory(options.name, error)) {
    const std::string cause = error ? error.message() : "it exists already";
    throw CommandError(kFailed, "the directory " + options.name + " cannot be made: " + cause);
  }
  const auto fill_in = [&options](const std::string& text) {
    return Replace(Replace(text, "sample", options.name), "Sample", ToTypeName(options.name));
  };
  const std::string package = FindPackage();
  for (const ProjectTemplate* file = kProjectTemplates; file->kind; ++file) {
    if (options.kind != file->kind) continue;
    const fs::path path = fs::path(options.name) / fill_in(file->file);
    WriteFile(path, Replace(fill_in(file->text), "\"PACKAGE\"", '"' + package + '"'));
    std::cout << path.string() << '\n';
  }
  std::cout << "Build and test it:\n  cd " << options.name
            << "\n  cmake --workflow --preset default\n";
  if (!std::cout.flush()) throw CommandError(kFailed, "standard output cannot be written");
}

}  // namespace

void AddNew(desk::CommandLine& program) {
  const auto options = std::make_shared<Options>();
  desk::Command command = program.AddCommand("new", kAbout, kFooter);
  command.AddArgument("KIND", &options->kind, "plugin, task or app").Require().Verify(CheckKind);
  command.AddArgument("NAME", &options->name, "The name of the project, and of its task")
      .Require()
      .Verify(CheckName);
  command.OnRun([options] { Run(*options); });
}

}  // namespace tools
