// JSON texts of strangers as trees.
//
// Threads: any.
// Errors:  std::runtime_error with what is wrong: a text that is no JSON (with line and column),
// one
//          that nests deeper than kDeepestJson, and an object with a duplicate key.
#pragma once

#include <string_view>

#include "desk/common/value_json.h"

namespace desk {

// The number of arrays and objects within each other: each level of a value takes three at most.
constexpr size_t kDeepestJson = 3 * kDeepestValue + 64;

// Takes time in proportion to the text, whatever the number of keys. Keeps the order of the keys.
Json ParseJson(std::string_view text);

}  // namespace desk
