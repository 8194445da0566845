// Places within a value, as people write them: result.items[2].time
//
// A step is a member (.time, or ["a b"] where the name is no word) or an element ([2]; also of a
// map whose key is that integer). In a pattern, .* and [*] stand for any one step.
//
// Threads: any.
// Errors:  std::runtime_error with what is wrong.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "cw/encodable_value.h"

namespace tools {

struct PathStep {
  enum class Kind { kMember, kElement, kAny };

  bool operator==(const PathStep& other) const {
    return kind == other.kind && name == other.name && index == other.index;
  }

  Kind kind = Kind::kMember;
  std::string name;   // Of a member.
  int64_t index = 0;  // Of an element.
};

using ValuePath = std::vector<PathStep>;

// Reads a path; its first step is a word. It has one step at least.
ValuePath ParsePath(std::string_view text);

std::string ToText(const ValuePath& path);

// The step from a map to the entry with this key.
PathStep StepTo(const cw::EncodableValue& key);

// Returns whether a path is one that the pattern stands for.
bool Matches(const ValuePath& pattern, const ValuePath& path);

// Returns the part of the value that the steps from `first` on lead to, or null when there is none.
const cw::EncodableValue* FindPart(const cw::EncodableValue& value, const ValuePath& path,
                                   size_t first);

// Removes what the steps of the pattern from `first` on lead to. A single element of a list becomes
// null, so that the others keep their places.
void RemoveParts(cw::EncodableValue* value, const ValuePath& pattern, size_t first);

}  // namespace tools
