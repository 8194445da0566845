// How long the tests of endurance take, and what they draw.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <string>

namespace test {

// What counts are multiplied by: 1 in every test run, more in script/soak.
inline int GetScale() {
  const char* scale = std::getenv("TAVO_TEST_SCALE");
  return scale ? std::atoi(scale) : 1;
}

// Where a test's random numbers begin: the same in every test run, drawn by script/soak. It is
// printed, so that a failure can be had again.
inline uint32_t GetSeed() {
  const char* text = std::getenv("TAVO_TEST_SEED");
  const auto seed = text ? static_cast<uint32_t>(std::stoul(text)) : 1;
  std::cout << "TAVO_TEST_SEED=" << seed << std::endl;
  return seed;
}

}  // namespace test
