// What the rules make of one direction of a connection: lines go in when they have arrived and come
// out when they are due. --cut-after and --kill-after are left to whoever passes the lines on.
//
// The same seed makes the same choices for the same lines. Only how many of them --reorder finds
// together depends on their times.
//
// Threads: one at a time.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "tools/proxy_rules.h"

namespace tools {

// Random numbers that are the same with every compiler and library.
class Random {
 public:
  explicit Random(uint64_t seed) : state_(seed) {}

  uint64_t Next();
  bool Hits(double share);     // True for this share of the calls.
  size_t Below(size_t limit);  // 0 to limit - 1.

 private:
  uint64_t state_;
};

struct ProxyLine {
  std::string text;           // With its newline.
  ProxyRules::Set rules = 0;  // Those that apply to it.
};

class ProxyStream {
 public:
  using Time = std::chrono::steady_clock::time_point;

  // Borrows the rules.
  ProxyStream(const ProxyRules& rules, uint64_t seed);

  void Put(ProxyLine line, Time now);

  // Returns the next line that is due, if there is one.
  std::optional<ProxyLine> Take(Time now);

  // The time at which Take has to be called next. Nothing: the stream is empty.
  std::optional<Time> GetDue() const;

  void Clear();

  // The memory that the lines in the stream take, about.
  size_t GetSize() const { return size_; }

 private:
  // The state of a rule.
  struct Stage {
    Random random;
    Time free{};                     // --slow: the end of the last line.
    std::vector<ProxyLine> waiting;  // --reorder: what will be shuffled,
    Time window_end{};               // and when, at the latest.
  };

  void Pass(ProxyLine line, size_t stage, Time due);
  void Gather(ProxyLine line, size_t stage, Time now);
  void Shuffle(size_t stage, Time now);

  const ProxyRules& rules_;
  std::vector<Stage> stages_;           // One for each rule.
  std::multimap<Time, ProxyLine> due_;  // Lines of equal times stay in their order.
  size_t size_ = 0;
};

}  // namespace tools
