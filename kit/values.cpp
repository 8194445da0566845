#include "kit/values.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <stdexcept>

namespace tavo::kit::details {
namespace {

constexpr size_t kMaxSteps = 16;  // The most steps that the text of a place shows.
constexpr size_t kMaxQuoted = 40;

// 2^63 and 2^64: the first doubles that int64_t and uint64_t do not hold.
constexpr double kAboveInt64 = 9223372036854775808.0;
constexpr double kAboveUint64 = 18446744073709551616.0;

// The peer's text, short and without bytes that could spoil a line of a log.
std::string Quote(std::string_view text) {
  std::string quoted = "\"";
  for (const char c : text.substr(0, kMaxQuoted)) quoted += c >= ' ' && c <= '~' ? c : '?';
  return quoted + (text.size() > kMaxQuoted ? "...\"" : "\"");
}

std::string ToText(double number) {
  char text[32];
  std::snprintf(text, sizeof text, "%.17g", number);
  return text;
}

// What a value is, as a part of a sentence.
struct Describer {
  std::string operator()(std::monostate) const { return "null"; }
  std::string operator()(bool value) const { return value ? "true" : "false"; }
  std::string operator()(int32_t number) const { return std::to_string(number); }
  std::string operator()(int64_t number) const { return std::to_string(number); }
  std::string operator()(double number) const { return ToText(number); }
  std::string operator()(const std::string&) const { return "a text"; }
  std::string operator()(const std::vector<uint8_t>&) const { return "bytes"; }
  template <typename T>
  std::string operator()(const std::vector<T>&) const {
    return "a list";
  }
  std::string operator()(const EncodableMap&) const { return "a map"; }
  std::string operator()(const cw::CustomEncodableValue&) const { return "a custom value"; }
};

// An integer of any kind: a number modulo 2^64 and its sign.
struct Integer {
  uint64_t number;
  bool is_negative;

  bool IsWithin(Range range) const {
    return is_negative ? static_cast<int64_t>(number) >= range.min : number <= range.max;
  }
};

std::optional<Integer> ToInteger(const EncodableValue& value) {
  if (const auto* narrow = value.GetIf<int32_t>()) {
    return Integer{static_cast<uint64_t>(*narrow), *narrow < 0};
  }
  if (const auto* wide = value.GetIf<int64_t>()) {
    return Integer{static_cast<uint64_t>(*wide), *wide < 0};
  }
  const auto* real = value.GetIf<double>();
  if (!real || !(*real >= -kAboveInt64 && *real < kAboveUint64) || std::trunc(*real) != *real) {
    return {};
  }
  if (*real < 0) return Integer{static_cast<uint64_t>(static_cast<int64_t>(*real)), true};
  return Integer{static_cast<uint64_t>(*real), false};
}

// The double that equals the number, or an empty optional.
std::optional<double> ToDouble(const EncodableValue& value) {
  if (const auto* real = value.GetIf<double>()) return *real;
  if (const auto* narrow = value.GetIf<int32_t>()) return static_cast<double>(*narrow);
  const auto* wide = value.GetIf<int64_t>();
  if (!wide) return {};
  const auto real = static_cast<double>(*wide);
  const bool is_exact = real < kAboveInt64 && static_cast<int64_t>(real) == *wide;
  return is_exact ? std::optional<double>(real) : std::nullopt;
}

template <typename T>
bool ReadAlternative(const EncodableValue& value, const Place& place, const char* expected,
                     T& out) {
  const auto* held = value.GetIf<T>();
  if (!held) return Refuse(place, expected, value);
  out = *held;
  return true;
}

}  // namespace

// ---- Places ----

std::string Place::DescribeStep() const {
  if (const auto* name = std::get_if<std::string_view>(&step_)) {
    return outer_ ? '.' + std::string(*name) : std::string(*name);
  }
  if (const auto* index = std::get_if<size_t>(&step_)) return '[' + std::to_string(*index) + ']';
  const EncodableValue& key = *std::get<const EncodableValue*>(step_);
  const auto* text = key.GetIf<std::string>();
  return '[' + (text ? Quote(*text) : key.Visit(Describer{})) + ']';
}

std::string Place::Describe() const {
  std::vector<std::string> steps;
  const Place* place = this;
  for (; place->outer_ && steps.size() < kMaxSteps; place = place->outer_) {
    steps.push_back(place->DescribeStep());
  }
  if (place->outer_) steps.push_back("...");
  while (place->outer_) place = place->outer_;
  std::string text = place->DescribeStep();
  for (auto step = steps.rbegin(); step != steps.rend(); ++step) text += *step;
  return text;
}

const EncodableValue& GetMissing() {
  static const EncodableValue missing;
  return missing;
}

bool Refuse(const Place& place, std::string_view expected, const EncodableValue& found) {
  const std::string instead =
      &found == &GetMissing() ? ", but it is missing" : ", not " + found.Visit(Describer{});
  place.SetMismatch(place.Describe() + ": " + std::string(expected) + " is expected" + instead);
  return false;
}

bool RefuseSize(const Place& place, size_t expected, size_t found) {
  place.SetMismatch(place.Describe() + ": a list of " + std::to_string(expected) +
                    " is expected, not of " + std::to_string(found));
  return false;
}

bool RefuseDepth(const Place& place) {
  place.SetMismatch(place.Describe() + ": the value is nested too deeply");
  return false;
}

bool RefuseName(const Place& place, const std::vector<std::string>& expected,
                const EncodableValue& found) {
  std::string names;
  for (const std::string& name : expected)
    names += (names.empty() ? "one of \"" : ", \"") + name + '"';
  const auto* text = found.GetIf<std::string>();
  if (!text) return Refuse(place, names, found);
  place.SetMismatch(place.Describe() + ": " + names + " is expected, not " + Quote(*text));
  return false;
}

Failure MakeBadValue(const std::string& mismatch) {
  return {Cause::kBadValue, flrpc::Message::Error(flrpc::kInternalError, mismatch)};
}

// ---- Reading ----

bool ReadValue(const EncodableValue& value, const Place& place, bool& out) {
  return ReadAlternative(value, place, "true or false", out);
}

bool ReadValue(const EncodableValue& value, const Place& place, std::string& out) {
  return ReadAlternative(value, place, "a text", out);
}

bool ReadValue(const EncodableValue& value, const Place& place, std::monostate& out) {
  return ReadAlternative(value, place, "null", out);
}

bool ReadValue(const EncodableValue& value, const Place&, EncodableValue& out) {
  out = value;
  return true;
}

bool ReadInteger(const EncodableValue& value, const Place& place, Range range, uint64_t& out) {
  const auto integer = ToInteger(value);
  if (integer && integer->IsWithin(range)) {
    out = integer->number;
    return true;
  }
  if (!integer) return Refuse(place, "an integer", value);
  return Refuse(place,
                "an integer from " + std::to_string(range.min) + " to " + std::to_string(range.max),
                value);
}

bool ReadValue(const EncodableValue& value, const Place& place, double& out) {
  const auto number = ToDouble(value);
  if (!number) return Refuse(place, "a double", value);
  out = *number;
  return true;
}

bool ReadValue(const EncodableValue& value, const Place& place, float& out) {
  constexpr double kMax = std::numeric_limits<float>::max();
  const auto number = ToDouble(value);
  const bool is_beyond = number && std::isfinite(*number) && std::abs(*number) > kMax;
  if (!number || is_beyond) return Refuse(place, "a float", value);
  const auto rounded = static_cast<float>(*number);
  const bool was_integer = !value.Is<double>();
  if (was_integer && static_cast<double>(rounded) != *number)
    return Refuse(place, "a float", value);
  out = rounded;
  return true;
}

namespace {

struct Sizer {
  std::optional<size_t> operator()(const EncodableList& list) const { return list.size(); }
  template <typename T>
  std::optional<size_t> operator()(const std::vector<T>& list) const {
    return list.size();
  }
  template <typename T>
  std::optional<size_t> operator()(const T&) const {
    return {};
  }
};

}  // namespace

std::optional<size_t> ListView::GetSize() const { return value_.Visit(Sizer{}); }

const EncodableValue& ListView::GetNumber(size_t index) {
  value_.Visit([this, index](const auto& held) {
    using Held = std::decay_t<decltype(held)>;
    if constexpr (IsList<Held>::value) number_ = From(held[index]);
  });
  return number_;
}

// ---- Writing ----

std::string GetWireName(std::string_view enumerator) {
  const bool is_constant =
      enumerator.size() > 1 && enumerator[0] == 'k' && enumerator[1] >= 'A' && enumerator[1] <= 'Z';
  if (!is_constant) return std::string(enumerator);
  std::string name(enumerator.substr(1));
  name[0] = static_cast<char>(name[0] - 'A' + 'a');
  return name;
}

void ThrowUnnamed() { throw std::range_error("The number of an enum has no name"); }
void ThrowOutOfRange() { throw std::range_error("The number exceeds the range of int64_t"); }

}  // namespace tavo::kit::details
