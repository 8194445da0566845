// The one logging facility: a line a statement, on standard output.
//
//   FORGE_LOG(kError) << "Invalid chunk ID <" << id << ">";
//
// writes "[error] forge/resources_cache:44 Invalid chunk ID <7>". Tag and location are coloured
// when standard output is a terminal. A kFatal line ends the process by abort().
//
// A statement keeps errno, so that a piece may use it: FORGE_LOG(kError) << std::strerror(errno).
//
// Threads: any; no lock is taken, so the pieces of lines written at once may interleave.
// Errors:  building the prefix may throw as the standard library does; ending the line never does.
#pragma once

#include <array>
#include <cerrno>
#include <cstddef>
#include <iosfwd>
#include <ostream>
#include <string_view>

#include "forge/export.h"

namespace forge::logger::details {

enum class LogLevel { kInfo = 0, kWarn = 1, kError = 2, kFatal = 3 };

// Restores errno when it ends.
class ErrnoGuard {
 public:
  ErrnoGuard() : value_(errno) {}
  ~ErrnoGuard() { errno = value_; }
  ErrnoGuard(const ErrnoGuard&) = delete;
  ErrnoGuard& operator=(const ErrnoGuard&) = delete;

 private:
  const int value_;
};

// One log line, from its prefix (constructor) to its end (destructor).
class FORGE_EXPORT Printer {
 public:
  // Writes the prefix; no tag for a level outside the enumeration, no location for an empty one.
  Printer(LogLevel level, std::string_view location);
  ~Printer();
  Printer(const Printer&) = delete;
  Printer& operator=(const Printer&) = delete;

  template <typename T>
  Printer& operator<<(const T& value) {
    const ErrnoGuard guard;
    *stream_ << value;
    return *this;
  }

 private:
  std::ostream* stream_;
  LogLevel level_;
};

// The text " path:line " of a statement, made by the compiler.
template <std::size_t kCapacity>
struct Location {
  std::array<char, kCapacity> text{};
  std::size_t size = 0;

  constexpr void Append(char c) { text[size++] = c; }
  constexpr std::string_view View() const { return {text.data(), size}; }
};

// The file path less its extension. The build maps the root away (-fmacro-prefix-map).
constexpr std::string_view WithoutExtension(std::string_view path) {
  const std::size_t dot = path.rfind('.');
  const std::size_t slash = path.rfind('/');
  const bool has_extension =
      dot != std::string_view::npos && (slash == std::string_view::npos || dot > slash);
  return has_extension ? path.substr(0, dot) : path;
}

template <std::size_t kPathSize>
constexpr auto MakeLocation(const char (&path)[kPathSize], unsigned line) {
  constexpr std::size_t kMostDigits = 10;
  Location<kPathSize + kMostDigits + 3> location;
  location.Append(' ');
  for (const char c : WithoutExtension({path, kPathSize - 1})) location.Append(c);
  location.Append(':');
  unsigned power = 1;
  while (line / power >= 10) power *= 10;
  for (; power > 0; power /= 10) location.Append(static_cast<char>('0' + line / power % 10));
  location.Append(' ');
  return location;
}

}  // namespace forge::logger::details

// Begins a log line of the level kInfo, kWarn, kError or kFatal; stream the message into it.
#define FORGE_LOG(level)                                                                   \
  ::forge::logger::details::Printer(::forge::logger::details::LogLevel::level, [] {        \
    static constexpr auto kLocation =                                                      \
        ::forge::logger::details::MakeLocation(__FILE__, static_cast<unsigned>(__LINE__)); \
    return kLocation.View();                                                               \
  }())
