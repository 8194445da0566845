// The rules of `tavo proxy`: what happens to the messages between a task and its launchers.
//
//   [from=|to=]AMOUNT[,TERM...]      such as 200ms, from=10%, 3,method=save
//
// The terms are those of tools/match.h. Where the amount is a share it may be missing, also alone:
// 100%.
//
// Threads: any.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "tools/match.h"

namespace tools {

// In the order in which they are applied to a message.
enum class Fault { kDrop, kDuplicate, kCorrupt, kReorder, kDelay, kSlow, kCutAfter, kKillAfter };

enum class Unit { kShare, kCount, kSeconds, kBytesPerSecond };

// The option of the command line for a fault.
struct FaultOption {
  Fault fault;
  Unit unit;
  const char* name;
  const char* about;
};

inline constexpr FaultOption kFaultOptions[] = {
    {Fault::kDrop, Unit::kShare, "--drop", "Leave out a share of the messages"},
    {Fault::kDuplicate, Unit::kShare, "--duplicate", "Pass a share of the messages on twice"},
    {Fault::kCorrupt, Unit::kShare, "--corrupt", "Invert a bit in a share of the messages"},
    {Fault::kReorder, Unit::kCount, "--reorder",
     "Shuffle so many messages at a time, or as many as come within 100 ms"},
    {Fault::kDelay, Unit::kSeconds, "--delay", "Pass messages on so much later"},
    {Fault::kSlow, Unit::kBytesPerSecond, "--slow", "Pass on so many bytes a second"},
    {Fault::kCutAfter, Unit::kCount, "--cut-after",
     "Close a connection when so many messages have gone through it"},
    {Fault::kKillAfter, Unit::kCount, "--kill-after",
     "Kill the task when so many messages have gone through"},
};

struct ProxyRule {
  Fault fault{};
  double amount = 1;      // In the unit of the fault; a share is at most 1.
  std::string direction;  // "to" the task or "from" it; empty: both.
  std::string terms;      // Empty: every message.
};

// Returns the rule that the text describes. Throws std::invalid_argument with what is wrong.
ProxyRule ParseRule(const FaultOption& option, const std::string& text);

// The rules of one command line.
class ProxyRules {
 public:
  // A set of rules: bit i stands for rule i.
  using Set = uint64_t;
  static constexpr size_t kMaxRules = 64;
  static constexpr int kMaxDuplicates = 4;  // Each may double the lines again.

  // Takes at most kMaxRules rules, in the order of their faults.
  explicit ProxyRules(std::vector<ProxyRule> rules);

  size_t GetSize() const { return rules_.size(); }
  const ProxyRule& operator[](size_t index) const { return rules_[index]; }

  bool HaveTerms() const;  // Some rule looks into the messages.
  bool AreRandom() const;  // Some rule draws random numbers.

  // Returns the rules that apply to the message. Without terms only its direction counts.
  Set Find(const Entry& entry) const;

 private:
  std::vector<ProxyRule> rules_;
  std::vector<Match> matches_;  // Of each rule.
};

}  // namespace tools
