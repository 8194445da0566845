// The base of every test: what a test opens, starts or forks is gone when it ends.
#pragma once

#include <gtest/gtest.h>

namespace test {

class TestBase : public testing::Test {
 protected:
  void SetUp() override;     // Takes the baseline and sets an alarm.
  void TearDown() override;  // Compares descriptors, threads and children with it.

  static int CountDescriptors();
  static int CountThreads();
  static bool HasChildren();

 private:
  int descriptors_ = 0;
  int threads_ = 0;
};

}  // namespace test
