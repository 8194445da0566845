#include "cw/admission.h"

#include <gtest/gtest.h>

#include "tests/support/values.h"

namespace {

using test::Bytes;
using test::FromHex;

bool IsAdmitted(const Bytes& bytes) { return !cw::FindInadmissible(bytes.data(), bytes.size()); }

Bytes Repeat(const std::string& hex, size_t times) {
  Bytes bytes;
  for (; times > 0; --times) {
    for (const uint8_t byte : FromHex(hex)) bytes.push_back(byte);
  }
  return bytes;
}

TEST(AdmissionTest, NestingIsLimitedNotDeclared) {
  for (const char* level : {"0c 01", "0d 01 00", "0c 02 00", "0c ff 01 00 00 00"}) {
    EXPECT_TRUE(IsAdmitted(Repeat(level, 1024))) << level;
    EXPECT_FALSE(IsAdmitted(Repeat(level, 1025))) << level;
    EXPECT_FALSE(IsAdmitted(Repeat(level, 100000))) << level;
  }
}

TEST(AdmissionTest, ValuesAreLimited) {
  Bytes list =
      FromHex("0c ff ff ff 3f 00");  // 4,194,303 elements: with the list as many as may be.
  list.resize(list.size() + 4194303);
  EXPECT_TRUE(IsAdmitted(list));
  list[2] = list[3] = 0, list[4] = 0x40;  // One more.
  list.push_back(0);
  EXPECT_FALSE(IsAdmitted(list));
}

TEST(AdmissionTest, ValueToSendIsMeasuredWithWhatLiesAroundIt) {
  using cw::EncodableList;
  const cw::EncodableValue nested = EncodableList{cw::EncodableMap{{1, EncodableList()}}, 2};
  for (const uint64_t values : {0, 4, 5, 6}) {  // It has five of its own, and three levels.
    for (const size_t levels : {2, 3, 4}) {
      const cw::Surroundings around{1024 - levels, 4194304 - values};
      EXPECT_EQ(values >= 5 && levels >= 3, !cw::FindInadmissible(nested, around));
    }
  }
}

TEST(AdmissionTest, WhatIsDeclaredButMissingIsLimited) {
  const std::pair<const char*, bool> rows[] = {
      {"", true},
      {"00", true},
      {"0c ff 00 00 02 00", true},     // 131,072 elements.
      {"0c ff 01 00 02 00", false},    // One more.
      {"0c ff 01 00 02 00 00", true},  // The one is there.
      {"0d ff 00 00 01 00", true},     // 65,536 entries of two.
      {"0d ff 01 00 01 00", false},
      {"0c 02 0c ff 00 00 02 00", false},  // The outer list misses one, too.
      {"0c ff ff ff ff 03", false},        // 2^26 - 1
      {"0c ff ff ff ff ff", false},
      {"0d ff ff ff ff ff", false},
      {"07 ff 00 00 00 04", true},  // 64 MiB
      {"07 ff 01 00 00 04", false},
      {"08 ff 01 00 00 04", false},
      {"05 ff ff ff ff ff", false},
      {"09 ff 00 00 00 01", true},
      {"09 ff 01 00 00 01", false},
      {"0e ff 01 00 00 01", false},
      {"0a ff 01 00 80 00", false},
      {"0b ff 00 00 80 00", true},
      {"0b ff ff ff ff ff", false},
      // A failed read does not advance: each text of the list misses its 32 MiB anew.
      {"0c 02 07 ff 00 00 00 02 07 ff 00 00 00 02", true},
      {"0c 03 07 ff 00 00 00 02 07 ff 00 00 00 02 07 01", false},
      // Behind padding, where a scan that does not align finds other values.
      {"0c 03 00 06 00 00 00 00 00 00 00 00 00 00 f0 3f 07 ff ff ff ff ff", false},
      {"0c 03 00 09 01 00 00 00 01 00 00 00 07 ff ff ff ff ff", false},
      {"0c 03 00 0a 01 00 00 00 01 00 00 00 00 00 00 00 07 ff ff ff ff ff", false},
      {"03 00", true},
      {"0c fe", true},
  };
  for (const auto& [bytes, admitted] : rows)
    EXPECT_EQ(admitted, IsAdmitted(FromHex(bytes))) << bytes;
  EXPECT_EQ(nullptr, cw::FindInadmissible(nullptr, 5));
}

}  // namespace
