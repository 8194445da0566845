#include "options.h"

#include <charconv>
#include <stdexcept>
#include <utility>

namespace digest {

const char kUsage[] =
    "usage: tavo-embed libdigest_plugin.so --libs-path DIR -- [OPTION | DIRECTORY]... [-- "
    "DIRECTORY...]\n"
    "\n"
    "Prints the SHA-256 digest of each regular file below the directories, as sha256sum does. The\n"
    "digests are made by the task \"digest\", which is found through TAVO_DESK_PATH. Symbolic "
    "links\n"
    "below the directories are left out; a file may be named, too. DIR holds libtavo.so.\n"
    "\n"
    "  --open URI         open the URI at the end, and tell the outcome\n"
    "  --skip PATH        leave out what would be printed so, and what is below; repeatable\n"
    "  --timeout SECONDS  how long the task may be silent until it counts as dead, and how long\n"
    "                     opening the URI may take (60)\n"
    "  --help             print this\n"
    "  DIRECTORY          default: the current one\n"
    "\n"
    "Standard error shows the progress: a bar on a terminal, without colour when NO_COLOR is set,\n"
    "elsewhere a line now and then for a large file; and in the end a summary.\n"
    "\n"
    "The library's log lines go to standard output.\n"
    "\n"
    "Ends with 0; 1 when a file or a directory could not be read, or the URI not be opened (the\n"
    "rest is done); 2 when the command line makes no sense, the library or the task cannot be\n"
    "used, the connection is lost, or standard output cannot be written.\n";

namespace {

std::chrono::seconds ParseTimeout(const std::string& text) {
  constexpr int kMost = 1000000;
  int seconds = 0;
  const char* const end = text.data() + text.size();
  const auto result = std::from_chars(text.data(), end, seconds);
  if (result.ec != std::errc() || result.ptr != end || seconds < 1 || seconds > kMost) {
    throw std::runtime_error("--timeout: \"" + text + "\" is not a number from 1 to " +
                             std::to_string(kMost));
  }
  return std::chrono::seconds(seconds);
}

void SetValue(const std::string& option, const std::string& value, Options* options) {
  if (option == "--open") {
    if (value.empty()) throw std::runtime_error("--open: the URI is empty");
    options->uri = value;
  } else if (option == "--skip") {
    options->skipped.insert(value);
  } else if (option == "--timeout") {
    options->timeout = ParseTimeout(value);
  }
}

bool TakesValue(const std::string& option) {
  return option == "--open" || option == "--skip" || option == "--timeout";
}

}  // namespace

Options ParseOptions(const std::vector<std::string>& arguments) {
  Options options;
  auto at = arguments.begin();
  std::vector<std::string> paths;
  for (; at != arguments.end() && *at != "--"; ++at) {
    if (at->size() < 2 || at->front() != '-') {
      paths.push_back(*at);
      continue;
    }
    options.help = options.help || *at == "--help";
    if (*at == "--help") continue;
    if (!TakesValue(*at)) throw std::runtime_error(*at + ": there is no such option");
    if (at + 1 == arguments.end()) throw std::runtime_error(*at + ": its value is missing");
    SetValue(*at, *(at + 1), &options);
    ++at;
  }
  if (at != arguments.end()) paths.insert(paths.end(), at + 1, arguments.end());
  if (!paths.empty()) options.paths = std::move(paths);
  return options;
}

}  // namespace digest
