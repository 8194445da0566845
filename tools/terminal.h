// What a program knows of the person who reads its standard output.
//
// Threads: any.
#pragma once

#include <sys/ioctl.h>
#include <unistd.h>

#include <cstddef>
#include <cstdlib>
#include <string_view>

namespace tools {

struct Terminal {
  size_t columns = 80;
  bool has_colour = false;  // Never with NO_COLOR (set and not empty).
};

// The terminal of standard output; the default where standard output is none.
inline Terminal GetTerminal() {
  Terminal terminal;
  if (isatty(STDOUT_FILENO) == 0) return terminal;
  winsize size{};
  if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0) {
    terminal.columns = size.ws_col;
  }
  const char* refused = std::getenv("NO_COLOR");
  const char* kind = std::getenv("TERM");
  const bool is_dumb = kind != nullptr && std::string_view(kind) == "dumb";
  terminal.has_colour = (refused == nullptr || *refused == '\0') && !is_dumb;
  return terminal;
}

}  // namespace tools
