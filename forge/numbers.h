// Checked conversion of numbers.
//
//   int64_t whole = 0;
//   if (!forge::numbers::SafeDoubleToInt64(value, whole)) return Refuse(value);
//
// Threads: any.
#pragma once

#include <cstdint>

#include "forge/export.h"

namespace forge::numbers {

// Stores the value in `out` and returns true when a 64-bit integer holds it exactly. Otherwise
// stores 0 and returns false. NaN, infinities and values out of the range are an error line; a
// fraction is not.
FORGE_EXPORT bool SafeDoubleToInt64(double value, int64_t& out);

}  // namespace forge::numbers
