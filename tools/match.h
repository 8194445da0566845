// What an entry must be like: the language of --match and --wait.
//
//   task=notes,method=s*,error
//
// All terms of an expression must hold; of several expressions, one. A term is KEY=PATTERN, with
// the patterns of the shell (*, ?, [a-z]), or the word error.
//
// Threads: any.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "desk/common/command_line.h"
#include "tools/records.h"

namespace tools {

class Match {
 public:
  Match() = default;  // Accepts every entry.
  // The expressions have passed Check. None accept every entry.
  explicit Match(const std::vector<std::string>& expressions);

  bool Accepts(const Entry& entry) const;

  // Returns what is wrong with an expression; empty: nothing is.
  static std::string Check(const std::string& expression);

  // Adds an option that may be given several times, each time with one expression.
  static desk::Option AddOption(desk::Command& command, const std::string& name,
                                std::vector<std::string>* expressions, const std::string& about);

 private:
  struct Term {
    std::string name;
    std::optional<std::string> pattern;  // Without: the word error.
  };

  static std::vector<Term> Split(const std::string& expression);
  static bool Holds(const Term& term, const Entry& entry);

  std::vector<std::vector<Term>> alternatives_;
};

}  // namespace tools
