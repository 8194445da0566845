// The lines that the monitor prints, for people or as JSON.
//
// Threads: one at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/records.h"
#include "tools/terminal.h"

namespace tools {

// Each text ends with a newline.
class MonitorLines {
 public:
  explicit MonitorLines(bool as_json) : as_json_(as_json) {}

  std::string Describe(const Entry& entry);
  // `waited` is in microseconds.
  std::string DescribeUnanswered(const Entry& request, std::optional<int64_t> waited);

 private:
  struct Part {
    const char* colour;  // An escape sequence; null: none.
    std::string text;
  };

  std::vector<Part> MakeHead(const Entry& entry);
  std::string Join(const std::vector<Part>& parts) const;

  const bool as_json_;
  const Terminal terminal_ = GetTerminal();
  // The widest so far: a column never becomes narrower.
  size_t connection_width_ = 1;
  size_t task_width_ = 1;
};

// The counts at the end.
struct Summary {
  void Add(const Entry& entry);
  std::string Describe() const;

  size_t messages = 0;
  size_t errors = 0;
  size_t unanswered = 0;
  std::vector<int64_t> latencies;
};

}  // namespace tools
