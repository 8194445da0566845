// The one logging facility: each statement writes one line to standard output.
//
//   FORGE_LOG(kError) << "Invalid chunk ID <" << id << ">";
//
// writes "[error] forge/resources_cache:44 Invalid chunk ID <7>". Tag and location are coloured
// when standard output is a terminal. Lines of all levels are written. A kFatal line ends the
// process by abort().
//
// A statement keeps errno, so the message may use it: FORGE_LOG(kError) << std::strerror(errno).
//
// Threads: any; no lock is taken, so the pieces of lines that are written at once may interleave.
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

// The levels, in the order of their weight: an event of normal operation, an unexpected input that
// is handled, an operation that has failed, and a state in which the process cannot go on. Code
// names them through FORGE_LOG.
enum class LogLevel { kInfo = 0, kWarn = 1, kError = 2, kFatal = 3 };

// Keeps errno: its destructor restores the value that the constructor found.
class ErrnoGuard {
 public:
  ErrnoGuard() : value_(errno) {}
  ~ErrnoGuard() { errno = value_; }
  ErrnoGuard(const ErrnoGuard&) = delete;
  ErrnoGuard& operator=(const ErrnoGuard&) = delete;

 private:
  const int value_;
};

// One log line: the constructor writes the prefix, the destructor ends the line and flushes it.
class FORGE_EXPORT Printer {
 public:
  // Writes the tag and the location. A level outside the enumeration has no tag, and an empty
  // location is left out.
  Printer(LogLevel level, std::string_view location);
  ~Printer();  // Ends the process for kFatal.
  Printer(const Printer&) = delete;
  Printer& operator=(const Printer&) = delete;

  // Writes a piece of the message, by the type's own operator for streams.
  template <typename T>
  Printer& operator<<(const T& value) {
    const ErrnoGuard guard;
    *stream_ << value;
    return *this;
  }

 private:
  std::ostream* stream_;  // Standard output, never null.
  LogLevel level_;
};

// The text " path:line " of a statement. The compiler makes it, so logging formats no location.
template <std::size_t kCapacity>
struct Location {
  std::array<char, kCapacity> text{};
  std::size_t size = 0;  // The number of characters of `text` that are used.

  constexpr void Append(char c) { text[size++] = c; }
  constexpr std::string_view View() const { return {text.data(), size}; }
};

// The file path without its extension. The build removes the root directory from the path
// (-fmacro-prefix-map).
constexpr std::string_view WithoutExtension(std::string_view path) {
  const std::size_t dot = path.rfind('.');
  const std::size_t slash = path.rfind('/');
  const bool has_extension =
      dot != std::string_view::npos && (slash == std::string_view::npos || dot > slash);
  return has_extension ? path.substr(0, dot) : path;
}

// Makes the location of a source file's path and a line number.
template <std::size_t kPathSize>
constexpr auto MakeLocation(const char (&path)[kPathSize], unsigned line) {
  constexpr std::size_t kMaxDigits = 10;
  Location<kPathSize + kMaxDigits + 3> location;
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

// Begins a log line of the level kInfo, kWarn, kError or kFatal; stream the message into it. The
// line ends with the statement.
#define FORGE_LOG(level)                                                                   \
  ::forge::logger::details::Printer(::forge::logger::details::LogLevel::level, [] {        \
    static constexpr auto kLocation =                                                      \
        ::forge::logger::details::MakeLocation(__FILE__, static_cast<unsigned>(__LINE__)); \
    return kLocation.View();                                                               \
  }())
