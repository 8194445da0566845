// Checked conversions of numbers and of texts.
#include "forge/numbers.h"

#include <cmath>
#include <limits>

#include "forge/strings.h"
#include "tests/support/log_capture.h"

using Limits = std::numeric_limits<int64_t>;
using NumbersTest = test::LogTest;

TEST_F(NumbersTest, DoubleIsConvertedWhenThatIsExact) {
  const std::tuple<double, int64_t, std::string> rows[] = {
      {std::nextafter(0x1p63, 0), Limits::max() - 1023, ""},
      {-0x1p63, Limits::min(), ""},
      {-0.999, 0, ""},
      {NAN, 0, "value is NaN"},
      {-INFINITY, 0, "value is infinite"},
      {0x1p63, 0, "value reaches or exceeds 2^63"},
      {1e19, 0, "double value is out of int64_t range"},
      {-0x1p63 - 2048, 0, "double value is out of int64_t range"},
  };
  for (const auto& [value, expected, error] : rows) {
    int64_t out = 77;
    const bool is_exact = value == static_cast<double>(expected);
    EXPECT_EQ(is_exact, forge::numbers::SafeDoubleToInt64(value, out));
    EXPECT_EQ(expected, out) << value;
    if (!error.empty()) ExpectError("Conversion failed: " + error);
  }
}

template <typename T>
static void ExpectParsed(const std::string& text, bool is_number, T expected) {
  T out = 77;
  EXPECT_EQ(is_number, forge::strings::ParseInt(text, out)) << text;
  EXPECT_EQ(expected, out) << text;
}

TEST_F(NumbersTest, IntegerIsAllOfTheTextOrNothing) {
  ExpectParsed("-0012", true, -12);
  ExpectParsed("9223372036854775807", true, Limits::max());
  ExpectParsed<uint8_t>("255", true, 255);
  ExpectParsed("", false, 0);
  EXPECT_NE("", log_.TakeLine());
  ExpectParsed<uint8_t>("256", false, 0);
  EXPECT_NE("", log_.TakeLine());
  ExpectParsed("-1", false, 0u);
  ExpectParsed({'5', '\0'}, false, 0);
  for (const char* bad : {"-", "+5", " 5", "5 ", "0x1"}) ExpectParsed(bad, false, 0);
  EXPECT_EQ(7u, log_.TakeLines().size());
}
