// Assertions are part of the contract: they must be alive in every build type.
#include <gtest/gtest.h>

#include <cassert>

namespace {

TEST(AssertionsTest, EndTheProcessInEveryBuildType) {
  const bool holds = false;
  EXPECT_DEATH(assert(holds), "holds");
}

}  // namespace
