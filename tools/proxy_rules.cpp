#include "tools/proxy_rules.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <stdexcept>
#include <utility>

namespace tools {
namespace {

struct Suffix {
  Unit unit;
  const char* text;
  double factor;
};

constexpr Suffix kSuffixes[] = {
    {Unit::kShare, "%", 0.01},
    {Unit::kCount, "", 1},
    {Unit::kSeconds, "", 1},
    {Unit::kSeconds, "ms", 0.001},
    {Unit::kSeconds, "s", 1},
    {Unit::kSeconds, "min", 60},
    {Unit::kBytesPerSecond, "B/s", 1},
    {Unit::kBytesPerSecond, "KiB/s", 1 << 10},
    {Unit::kBytesPerSecond, "MiB/s", 1 << 20},
};

struct Range {
  double least;
  double most;
  const char* example;
};

constexpr Range kRanges[] = {
    // By Unit.
    {0, 1, "10%"},
    {1, 1e6, "3"},
    {0, 3600, "200ms"},
    {1, 1e12, "64KiB/s"},
};

double ParseAmount(Unit unit, const std::string& text) {
  const Range& range = kRanges[static_cast<size_t>(unit)];
  double number = 0;
  const char* const end = text.data() + text.size();
  const auto parsed = std::from_chars(text.data(), end, number);
  const std::string rest(parsed.ptr, end);
  const auto* const suffix =
      std::find_if(std::begin(kSuffixes), std::end(kSuffixes),
                   [&](const Suffix& known) { return known.unit == unit && known.text == rest; });
  if (parsed.ec != std::errc() || suffix == std::end(kSuffixes)) {
    throw std::invalid_argument('"' + text + "\" is no amount such as " + range.example);
  }
  number *= suffix->factor;
  const bool is_within = number >= range.least && number <= range.most;  // A NaN is not.
  if (!is_within || (unit == Unit::kCount && std::trunc(number) != number)) {
    throw std::invalid_argument('"' + text + "\" is out of range");
  }
  return number;
}

// Takes the prefix off the text if the text begins with it.
bool TakePrefix(const std::string& prefix, std::string* text) {
  if (text->compare(0, prefix.size(), prefix) != 0) return false;
  text->erase(0, prefix.size());
  return true;
}

std::vector<std::string> Alternatives(const std::string& terms) {
  return terms.empty() ? std::vector<std::string>() : std::vector<std::string>{terms};
}

}  // namespace

ProxyRule ParseRule(const FaultOption& option, const std::string& text) {
  ProxyRule rule;
  rule.fault = option.fault;
  std::string rest = text;
  for (const char* direction : {"to", "from"}) {
    if (TakePrefix(direction + std::string("="), &rest)) rule.direction = direction;
  }
  const bool begins_with_digit = !rest.empty() && rest[0] >= '0' && rest[0] <= '9';
  if (option.unit == Unit::kShare && rest.empty()) return rule;
  if (option.unit != Unit::kShare || begins_with_digit) {
    const size_t comma = rest.find(',');
    rule.amount = ParseAmount(option.unit, rest.substr(0, comma));
    if (comma == std::string::npos) return rule;
    rest.erase(0, comma + 1);
  }
  const std::string fault = Match::Check(rest);
  if (!fault.empty()) throw std::invalid_argument(fault);
  rule.terms = rest;
  return rule;
}

ProxyRules::ProxyRules(std::vector<ProxyRule> rules) : rules_(std::move(rules)) {
  for (const ProxyRule& rule : rules_) matches_.emplace_back(Alternatives(rule.terms));
}

bool ProxyRules::HaveTerms() const {
  return std::any_of(rules_.begin(), rules_.end(),
                     [](const ProxyRule& rule) { return !rule.terms.empty(); });
}

bool ProxyRules::AreRandom() const {
  return std::any_of(rules_.begin(), rules_.end(), [](const ProxyRule& rule) {
    const bool is_share = rule.fault == Fault::kDrop || rule.fault == Fault::kDuplicate;
    return rule.fault == Fault::kCorrupt || rule.fault == Fault::kReorder ||
           (is_share && rule.amount < 1);
  });
}

ProxyRules::Set ProxyRules::Find(const Entry& entry) const {
  Set found = 0;
  for (size_t i = 0; i < rules_.size(); ++i) {
    const bool is_right_way = rules_[i].direction.empty() || rules_[i].direction == entry.direction;
    if (is_right_way && matches_[i].Accepts(entry)) found |= Set{1} << i;
  }
  return found;
}

}  // namespace tools
