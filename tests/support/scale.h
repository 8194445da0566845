// How long the tests of endurance take, and what they draw: 1 unless script/soak sets, and prints,
// other numbers.
#pragma once

#include <QtGlobal>

namespace test {

// What counts are multiplied by.
inline int GetScale() { return qMax(1, qEnvironmentVariableIntValue("TAVO_TEST_SCALE")); }

// Where a test's random numbers begin.
inline uint32_t GetSeed() { return qMax(1, qEnvironmentVariableIntValue("TAVO_TEST_SEED")); }

}  // namespace test
