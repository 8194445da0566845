#include "tools/desktop_entry.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <system_error>

#include "desk/common/quiet_write.h"
#include "desk/common/utf8.h"
#include "tools/descriptor.h"
#include "tools/tavo_commands.h"

namespace tools {
namespace {

namespace fs = std::filesystem;

constexpr char kFirstLine[] = "# Written by tavo.";
constexpr mode_t kMode = 0644;  // Of an entry.

[[noreturn]] void Fail(const std::string& file, const std::string& cause) {
  throw CommandError(kFailed, file + ": " + cause);
}

// A text of the file format.
std::string Escape(const std::string& text) {
  std::string escaped;
  for (const char c : text) {
    constexpr std::string_view kSpecial = "\\\n\r\t";
    constexpr std::string_view kLetters = "\\nrt";
    const size_t at = kSpecial.find(c);
    escaped += at == std::string_view::npos ? std::string(1, c) : std::string{'\\', kLetters[at]};
  }
  return escaped;
}

// A word of a command line, which is quoted as for a shell; a percent sign begins a field code.
std::string QuoteWord(const std::string& word) {
  std::string quoted = "\"";
  for (const char c : word) {
    if (c == '"' || c == '\\' || c == '`' || c == '$') quoted += '\\';
    if (c == '%') quoted += '%';
    quoted += c;
  }
  return quoted + '"';
}

// A symbolic link is none of tavo's, wherever it leads.
bool IsReplaceable(const fs::path& file) {
  const fs::file_status status = fs::symlink_status(file);
  if (!fs::exists(status)) return true;
  if (!fs::is_regular_file(status)) return false;
  std::ifstream stream(file);
  std::string line;
  return std::getline(stream, line) && line == kFirstLine;
}

std::string MakeEntry(const std::string& name, const std::vector<std::string>& arguments) {
  std::string command = QuoteWord(fs::read_symlink("/proc/self/exe").string());
  for (const std::string& argument : arguments) command += ' ' + QuoteWord(argument);
  return std::string(kFirstLine) + "\n[Desktop Entry]\nType=Application\nName=" + Escape(name) +
         "\nComment=Stands in for a task\nNoDisplay=true\nExec=" + Escape(command) + '\n';
}

// Whoever starts the task meanwhile sees the former entry or the new one.
void Write(const fs::path& file, const std::string& text) {
  std::string draft = file.string() + ".XXXXXX";
  const Descriptor descriptor(mkostemp(draft.data(), O_CLOEXEC));
  if (descriptor.Get() < 0) Fail(file.string(), std::strerror(errno));
  size_t written = 0;
  int fault = desk::WriteQuietly(descriptor.Get(), text.data(), text.size(), 0, &written);
  if (fault == 0 && fchmod(descriptor.Get(), kMode) != 0) fault = errno;
  if (fault == 0 && rename(draft.c_str(), file.c_str()) != 0) fault = errno;
  if (fault == 0) return;
  unlink(draft.c_str());
  Fail(file.string(), std::strerror(fault));
}

}  // namespace

std::string MakeAbsolute(const std::string& file) {
  std::error_code error;
  const fs::path path = fs::absolute(file, error);
  if (error) Fail(file, error.message());
  return path.string();
}

std::string WriteDesktopEntry(const std::string& directory, const std::string& name,
                              const std::vector<std::string>& arguments) {
  if (name.empty() || name[0] == '.' || name.find('/') != std::string::npos) {
    throw CommandError(kWrongUsage, '"' + name + "\" is no name of a task");
  }
  try {
    fs::create_directories(directory);
    const fs::path file = fs::canonical(directory) / (name + ".desktop");
    const std::string text = MakeEntry(name, arguments);
    if (!desk::IsUtf8(text)) Fail(file.string(), "the names of files must be UTF-8");
    if (!IsReplaceable(file)) Fail(file.string(), "exists, and tavo has not written it");
    Write(file, text);
    return file.string();
  } catch (const fs::filesystem_error& error) {
    Fail(directory, error.code().message());
  }
}

}  // namespace tools
