#include "tools/match.h"

#include <fnmatch.h>

#include <algorithm>
#include <optional>
#include <sstream>

namespace tools {
namespace {

constexpr char kError[] = "error";  // The word that is a term of its own.

std::string Show(const std::optional<int64_t>& number) {
  return number ? std::to_string(*number) : std::string();
}

struct Key {
  const char* name;
  std::string (*get)(const Entry& entry);
};

constexpr Key kKeys[] = {
    {"task", [](const Entry& entry) { return entry.task; }},
    {"method", [](const Entry& entry) { return entry.method; }},
    {"direction", [](const Entry& entry) { return entry.direction; }},
    {"kind", [](const Entry& entry) { return entry.GetKindName(); }},
    {"id", [](const Entry& entry) { return entry.id; }},
    {"connection", [](const Entry& entry) { return entry.connection; }},
    {"pid", [](const Entry& entry) { return Show(entry.task_pid); }},
    {"pid", [](const Entry& entry) { return Show(entry.starter_pid); }},  // Either of both.
};

}  // namespace

Match::Match(const std::vector<std::string>& expressions) {
  for (const std::string& expression : expressions) alternatives_.push_back(Split(expression));
}

std::vector<Match::Term> Match::Split(const std::string& expression) {
  std::vector<Term> terms;
  std::istringstream stream(expression);
  for (std::string text; std::getline(stream, text, ',');) {
    const size_t sign = text.find('=');
    Term& term = terms.emplace_back();
    term.name = text.substr(0, sign);
    if (sign != std::string::npos) term.pattern = text.substr(sign + 1);
  }
  return terms;
}

bool Match::Holds(const Term& term, const Entry& entry) {
  if (!term.pattern) return entry.is_error;
  return std::any_of(std::begin(kKeys), std::end(kKeys), [&](const Key& key) {
    return term.name == key.name && fnmatch(term.pattern->c_str(), key.get(entry).c_str(), 0) == 0;
  });
}

bool Match::Accepts(const Entry& entry) const {
  const auto holds = [&entry](const Term& term) { return Holds(term, entry); };
  const auto accepts = [&holds](const std::vector<Term>& terms) {
    return std::all_of(terms.begin(), terms.end(), holds);
  };
  return alternatives_.empty() || std::any_of(alternatives_.begin(), alternatives_.end(), accepts);
}

std::string Match::Check(const std::string& expression) {
  if (expression.empty() || expression.back() == ',') {
    return '"' + expression + "\" ends where a term is expected";
  }
  for (const Term& term : Split(expression)) {
    const bool is_key = std::any_of(std::begin(kKeys), std::end(kKeys),
                                    [&term](const Key& key) { return term.name == key.name; });
    if (term.pattern ? is_key : term.name == kError) continue;
    return "there is no term \"" + term.name +
           "\": the terms are task=, method=, direction=, kind=, id=, connection= and pid= with a "
           "pattern, and the word error";
  }
  return "";
}

desk::Option Match::AddOption(desk::Command& command, const std::string& name,
                              std::vector<std::string>* expressions, const std::string& about) {
  return command.AddOption(name, expressions, "EXPR", about).Verify(Check);
}

}  // namespace tools
