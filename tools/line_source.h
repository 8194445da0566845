// A source of the lines of a record: a file, a pipe, or the conversations of the session live.
//
// Threads: one at a time.
// Errors:  std::runtime_error when nothing more can be read.
#pragma once

#include <chrono>
#include <cstddef>
#include <string>

namespace tools {

constexpr size_t kMaxLine = size_t{64} << 20;  // A source cuts a longer line to one byte more.

class ILineSource {
 public:
  enum class Got { kLine, kNothing, kEnd };

  virtual ~ILineSource() = default;

  // Stores the next line, without its newline. kNothing: no line came until the deadline, or a
  // signal arrived. A deadline in the past does not wait. After kEnd no line comes.
  virtual Got Next(std::string* line, std::chrono::steady_clock::time_point deadline) = 0;

  // The number of the last line, from 1. 0 when the source does not number its lines.
  virtual size_t GetLineNumber() const { return 0; }
};

}  // namespace tools
