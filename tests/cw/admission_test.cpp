#include "cw/admission.h"

#include <gtest/gtest.h>

#include "tests/support/values.h"

namespace {

bool IsAdmitted(const test::Bytes& bytes) {
  return !cw::FindInadmissible(bytes.data(), bytes.size());
}
bool IsAdmitted(const std::string& hex) { return IsAdmitted(test::FromHex(hex)); }

TEST(AdmissionTest, NestingIsLimitedNotDeclared) {
  for (const std::string level : {"0c 01", "0d 01 00", "0c 02 00", "0c ff 01 00 00 00"}) {
    std::string nested;
    for (int i = 0; i < 1024; ++i) nested += level;
    EXPECT_TRUE(IsAdmitted(nested)) << level;
    EXPECT_FALSE(IsAdmitted(nested + level)) << level;
  }
}

TEST(AdmissionTest, ValuesAreLimited) {
  test::Bytes list = test::FromHex("0c ff 00 00 40 00");  // 4,194,304 elements.
  list.resize(list.size() + 4194303);                     // The last one is missing.
  EXPECT_TRUE(IsAdmitted(list));
  list.push_back(0);
  EXPECT_FALSE(IsAdmitted(list));
}

TEST(AdmissionTest, ValueToSendIsMeasuredWithWhatLiesAroundIt) {
  using cw::EncodableList;
  const cw::EncodableValue nested = EncodableList{cw::EncodableMap{{1, EncodableList()}}, 2};
  bool needs_bytes = false;
  for (const uint64_t values : {0, 4, 5, 6}) {  // The value has five values, and three levels.
    for (const size_t levels : {2, 3, 4}) {
      const cw::Surroundings around{1024 - levels, 4194304 - values};
      EXPECT_EQ(values >= 5 && levels >= 3, !cw::FindInadmissible(nested, around, &needs_bytes));
    }
  }
  EXPECT_FALSE(needs_bytes);
  EXPECT_EQ(nullptr, cw::FindInadmissible(std::vector<double>(), {}, &needs_bytes));
  EXPECT_TRUE(needs_bytes);  // The codec aligns behind an empty list when it reads it.
}

TEST(AdmissionTest, WhatIsDeclaredButMissingIsLimited) {
  const std::pair<const char*, const char*> rows[] = {
      // One is admitted, the other is not.
      {"0c ff 00 00 02 00", "0c ff 01 00 02 00"},  // 131,072 elements.
      {"0c ff 01 00 02 00 00", "0c 02 0c ff 00 00 02 00"},
      {"0d ff 00 00 01 00", "0d ff 01 00 01 00"},  // 65,536 entries of two.
      {"0c fe", "0d ff 00 00 00 80"},              // More than 32 bits can count.
      {"07 ff 00 00 00 04", "07 ff 01 00 00 04"},  // 64 MiB.
      {"", "05 ff 01 00 00 04"},
      {"00", "08 ff 01 00 00 04"},
      {"09 ff 00 00 00 01", "0e ff 01 00 00 01"},
      {"0b ff 00 00 80 00", "0a ff 01 00 80 00"},
      // A failed read does not advance: each text of the list misses its 32 MiB anew.
      {"0c 02 07 ff 00 00 00 02 07 ff 00 00 00 02",
       "0c 03 07 ff 00 00 00 02 07 ff 00 00 00 02 07 01"},
      // Behind values of each kind, where a scan that skips too much or too little finds others.
      {"0c 02 08 fe 05 00 00 00 00 00 00 07 00",
       "0c 08 00 06 00 00 00 00 00 00 00 00 00 00 00 00 03 00 00 00 00 08 fe 05 00 00 00 00 00 00"
       "04 00 00 00 00 00 00 00 00 09 01 00 00 00 00 00 00 00 0a 01 00 00 00 00 00 00"
       "00 00 00 00 00 00 00 00 07 ff ff ff ff ff"},
  };
  for (const auto& [admitted, refused] : rows) {
    EXPECT_TRUE(IsAdmitted(admitted)) << admitted;
    EXPECT_FALSE(IsAdmitted(refused)) << refused;
  }
}

}  // namespace
