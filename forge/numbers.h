// Checked conversion of numbers.
//
// Threads: any.
#pragma once

#include <cstdint>

#include "forge/export.h"

namespace forge::numbers {

// True, and the value in `out`, when a 64-bit integer holds it exactly; else false, and 0. NaN,
// infinities and what lies beyond the range are an error line, a fraction is none.
FORGE_EXPORT bool SafeDoubleToInt64(double value, int64_t& out);

}  // namespace forge::numbers
