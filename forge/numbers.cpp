#include "forge/numbers.h"

#include <cmath>

#include "forge/logger.h"

namespace forge::numbers {

bool SafeDoubleToInt64(double value, int64_t& out) {
  constexpr double kLimit = 9223372036854775808.0;  // 2^63
  out = 0;
  if (std::isnan(value)) {
    FORGE_LOG(kError) << "Conversion failed: value is NaN";
    return false;
  }
  if (std::isinf(value)) {
    FORGE_LOG(kError) << "Conversion failed: value is infinite";
    return false;
  }
  if (std::trunc(value) != value) return false;
  if (value < -kLimit || value > kLimit) {
    FORGE_LOG(kError) << "Conversion failed: double value is out of int64_t range";
    return false;
  }
  if (value == kLimit) {
    FORGE_LOG(kError) << "Conversion failed: value reaches or exceeds 2^63";
    return false;
  }
  out = static_cast<int64_t>(value);
  return true;
}

}  // namespace forge::numbers
