// How long the calls of a series took, for people and for programs.
//
// Threads: a plain value, no locking.
#pragma once

#include <chrono>
#include <string>
#include <vector>

namespace tools {

class LatencyTable {
 public:
  using Duration = std::chrono::steady_clock::duration;

  void Add(Duration latency) { latencies_.push_back(latency); }
  void AddError() { ++errors_; }
  size_t CountErrors() const { return errors_; }
  size_t CountCalls() const { return latencies_.size(); }

  // Lines without a newline at the end. `total` is the time that the series took.
  std::string ToText(Duration total) const;

  // One line of JSON; times are in milliseconds unless the key says otherwise.
  std::string ToJsonText(Duration total) const;

 private:
  struct Summary;
  Summary Summarize(Duration total) const;

  std::vector<Duration> latencies_;  // Of all calls, also of those that were answered by an error.
  size_t errors_ = 0;
};

}  // namespace tools
