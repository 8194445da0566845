#include "forge/spare_texts.h"

#include <gtest/gtest.h>

namespace {

using forge::SpareTexts;

TEST(SpareTextsTest, KeepsTheLargestOfTheTextsWithinItsLimits) {
  SpareTexts spare;
  for (const size_t size : {SpareTexts::kMinKept - 1, SpareTexts::kMaxKept + 1}) {
    spare.Keep(std::string(size, 'x'));
    EXPECT_EQ("", spare.Take(size)) << size;
  }
  for (const size_t size : {50'000, 90'000, 70'000, 60'000, 80'000}) {
    spare.Keep(std::string(size, 'x'));
  }
  EXPECT_EQ("", spare.Take(100'000));
  EXPECT_EQ("", spare.Take(1));
  for (const size_t size : {90'000, 70'000, 40'000}) EXPECT_LE(size, spare.Take(size).capacity());
  EXPECT_EQ("", spare.Take(40'000));
  spare.Keep(std::string(200'000, 'x'));
  EXPECT_EQ("", spare.Take(40'000)) << "A text must not hold a much larger block.";
  EXPECT_LE(200'000, spare.Take(60'000).capacity());
}

}  // namespace
