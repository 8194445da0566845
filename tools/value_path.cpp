#include "tools/value_path.h"

#include <algorithm>
#include <charconv>
#include <iterator>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "cw/map_access.h"
#include "desk/common/value_json.h"

namespace tools {
namespace {

using cw::EncodableList;
using cw::EncodableMap;
using cw::EncodableValue;
using Kind = PathStep::Kind;

constexpr std::string_view kNoWord = ".[]\"";  // What a name has that is written in brackets.

bool IsWord(std::string_view name) {
  const auto is_plain = [](unsigned char c) {
    return c > ' ' && c != 0x7F && c != '*' && kNoWord.find(static_cast<char>(c)) == kNoWord.npos;
  };
  return !name.empty() && std::all_of(name.begin(), name.end(), is_plain);
}

PathStep Member(std::string name) { return {Kind::kMember, std::move(name), 0}; }

class Parser {
 public:
  explicit Parser(std::string_view text) : text_(text) {}

  ValuePath Parse() {
    ValuePath path{Member(std::string(TakeWord()))};
    while (at_ < text_.size()) path.push_back(TakeStep());
    return path;
  }

 private:
  [[noreturn]] void Fail(const char* what) const {
    throw std::runtime_error("the path \"" + std::string(text_) + "\": " + what);
  }

  void Expect(char c, const char* what) {
    if (at_ >= text_.size() || text_[at_] != c) Fail(what);
    ++at_;
  }

  std::string_view TakeWord() {
    const size_t end = std::min(text_.find_first_of(kNoWord, at_), text_.size());
    if (end == at_) Fail("a name is missing");
    const size_t begin = std::exchange(at_, end);
    return text_.substr(begin, end - begin);
  }

  PathStep TakeStep() {
    if (text_[at_] == '.') {
      ++at_;
      const std::string_view word = TakeWord();
      return word == "*" ? PathStep{Kind::kAny, {}, 0} : Member(std::string(word));
    }
    Expect('[', "a step begins with . or [");
    PathStep step = TakeInBrackets();
    Expect(']', "a ] is missing");
    return step;
  }

  PathStep TakeInBrackets() {
    if (text_.substr(at_, 1) == "\"") return Member(TakeQuoted());
    PathStep step{Kind::kElement, {}, 0};
    if (text_.substr(at_, 1) == "*") {
      ++at_;
      step.kind = Kind::kAny;
      return step;
    }
    const char* const end = text_.data() + text_.size();
    const auto result = std::from_chars(text_.data() + at_, end, step.index);
    if (result.ec != std::errc()) Fail("in brackets is a number, a \"name\" or *");
    at_ = static_cast<size_t>(result.ptr - text_.data());
    return step;
  }

  std::string TakeQuoted() {
    std::string name;
    for (++at_; at_ < text_.size() && text_[at_] != '"'; ++at_) {
      if (text_[at_] == '\\' && at_ + 1 < text_.size()) ++at_;
      name += text_[at_];
    }
    Expect('"', "a \" is missing");
    return name;
  }

  const std::string_view text_;
  size_t at_ = 0;
};

std::string Quote(const std::string& name) {
  std::string quoted;
  for (const char c : name) {
    if (c == '"' || c == '\\') quoted += '\\';
    quoted += c;
  }
  return '"' + quoted + '"';
}

// Each entry of a list or a map that the step leads to. The function may change it.
template <typename Value, typename Function>
void ForEachPart(Value& value, const PathStep& step, const Function& function) {
  if (auto* map = value.template GetIf<EncodableMap>()) {
    for (auto& [key, part] : *map) {
      if (step.kind == Kind::kAny || StepTo(key) == step) function(part);
    }
  } else if (auto* list = value.template GetIf<EncodableList>()) {
    for (size_t i = 0; i < list->size(); ++i) {
      const bool is_it = step.kind == Kind::kElement && step.index == static_cast<int64_t>(i);
      if (step.kind == Kind::kAny || is_it) function((*list)[i]);
    }
  }
}

}  // namespace

ValuePath ParsePath(std::string_view text) { return Parser(text).Parse(); }

std::string ToText(const ValuePath& path) {
  std::string text;
  for (const PathStep& step : path) {
    if (step.kind == Kind::kElement) text += '[' + std::to_string(step.index) + ']';
    if (step.kind == Kind::kAny) text += "[*]";
    if (step.kind != Kind::kMember) continue;
    text +=
        IsWord(step.name) ? (text.empty() ? "" : ".") + step.name : '[' + Quote(step.name) + ']';
  }
  return text;
}

PathStep StepTo(const EncodableValue& key) {
  if (const auto* name = key.GetIf<std::string>()) return Member(*name);
  if (const auto* number = key.GetIf<int32_t>()) return {Kind::kElement, {}, *number};
  if (const auto* number = key.GetIf<int64_t>()) return {Kind::kElement, {}, *number};
  return Member(desk::ToText(key));
}

bool Matches(const ValuePath& pattern, const ValuePath& path) {
  const auto is_same = [](const PathStep& wanted, const PathStep& step) {
    return wanted.kind == Kind::kAny || wanted == step;
  };
  return pattern.size() == path.size() &&
         std::equal(pattern.begin(), pattern.end(), path.begin(), is_same);
}

const EncodableValue* FindPart(const EncodableValue& value, const ValuePath& path, size_t first) {
  const EncodableValue* part = &value;
  for (size_t i = first; i < path.size() && part; ++i) {
    const EncodableValue& around = *part;
    part = nullptr;
    ForEachPart(around, path[i], [&part](const EncodableValue& found) { part = &found; });
  }
  return part;
}

void RemoveParts(EncodableValue* value, const ValuePath& pattern, size_t first) {
  const PathStep& step = pattern[first];
  const bool is_any = step.kind == Kind::kAny;
  auto* const map = value->GetIf<EncodableMap>();
  auto* const list = value->GetIf<EncodableList>();
  if (first + 1 < pattern.size()) {
    ForEachPart(*value, step, [&](auto& part) { RemoveParts(&part, pattern, first + 1); });
  } else if (map) {
    for (auto entry = map->begin(); entry != map->end();) {
      entry = is_any || StepTo(entry->first) == step ? map->erase(entry) : std::next(entry);
    }
  } else if (list && is_any) {
    list->clear();
  } else {
    ForEachPart(*value, step, [](EncodableValue& part) { part = {}; });
  }
}

}  // namespace tools
