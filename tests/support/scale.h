// How long the tests of endurance take, and what they draw: 1 unless script/soak sets, and prints,
// other numbers.
#pragma once

#include <cstdlib>
#include <string>

namespace test {

inline uint32_t GetNumber(const char* variable) {
  const char* text = std::getenv(variable);
  return text ? static_cast<uint32_t>(std::stoul(text)) : 1;
}

// What counts are multiplied by.
inline int GetScale() { return static_cast<int>(GetNumber("TAVO_TEST_SCALE")); }

// Where a test's random numbers begin.
inline uint32_t GetSeed() { return GetNumber("TAVO_TEST_SEED"); }

}  // namespace test
