// Checked conversions of numbers and of texts.
#include "forge/numbers.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>

#include "forge/strings.h"
#include "tests/support/log_capture.h"

namespace {

using Lines = std::vector<std::string>;

TEST(NumbersTest, DoubleIsConvertedWhenThatIsExact) {
  test::LogCapture log;
  const double limit = std::ldexp(1.0, 63);
  const double infinity = std::numeric_limits<double>::infinity();
  const struct {
    double value;
    bool exact;
    int64_t out;
    const char* error;
  } rows[] = {
      {0.0, true, 0, ""},
      {-0.0, true, 0, ""},
      {-3.0, true, -3, ""},
      {std::ldexp(1.0, 52) + 1, true, (int64_t{1} << 52) + 1, ""},
      {std::ldexp(1.0, 53), true, int64_t{1} << 53, ""},
      {std::nextafter(limit, 0), true, std::numeric_limits<int64_t>::max() - 1023, ""},
      {-limit, true, std::numeric_limits<int64_t>::min(), ""},
      {0.5, false, 0, ""},
      {-0.999, false, 0, ""},
      {std::ldexp(1.0, 51) + 0.5, false, 0, ""},
      {std::numeric_limits<double>::denorm_min(), false, 0, ""},
      {std::nan(""), false, 0, "value is NaN"},
      {infinity, false, 0, "value is infinite"},
      {-infinity, false, 0, "value is infinite"},
      {limit, false, 0, "value reaches or exceeds 2^63"},
      {1e19, false, 0, "double value is out of int64_t range"},
      {std::nextafter(-limit, -infinity), false, 0, "double value is out of int64_t range"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.value);
    int64_t out = 77;
    EXPECT_EQ(row.exact, forge::numbers::SafeDoubleToInt64(row.value, out));
    EXPECT_EQ(row.out, out);
    const std::string line = std::string("[error] Conversion failed: ") + row.error;
    EXPECT_EQ(row.error[0] ? Lines{line} : Lines{}, log.TakeLines());
  }
}

template <typename T>
void ExpectParsed(test::LogCapture& log, const std::string& text, bool parsed, T expected) {
  SCOPED_TRACE(text);
  T out = 77;
  EXPECT_EQ(parsed, forge::strings::ParseInt(text, out));
  EXPECT_EQ(expected, out);
  const std::string line =
      text.empty() ? "[warn] Could not convert empty string to uint."
                   : "[warn] Could not convert string \"" + text + "\" to integer value.";
  EXPECT_EQ(parsed ? Lines{} : Lines{line}, log.TakeLines());
}

TEST(StringsTest, IntegerIsAllOfTheTextOrNothing) {
  test::LogCapture log;
  ExpectParsed<long long>(log, "0", true, 0);
  ExpectParsed<long long>(log, "-0012", true, -12);
  ExpectParsed<long long>(log, "9223372036854775807", true, 9223372036854775807);
  ExpectParsed<long long>(log, "-9223372036854775808", true, std::numeric_limits<long long>::min());
  for (const char* bad : {"", "-", "+5", " 5", "5 ", "12ab", "--1", "0x1", "a",
                          "9223372036854775808", "-9223372036854775809"}) {
    ExpectParsed<long long>(log, bad, false, 0);
  }
  ExpectParsed<long long>(log, std::string("5\0", 2), false, 0);
  ExpectParsed<uint8_t>(log, "255", true, 255);
  ExpectParsed<uint8_t>(log, "256", false, 0);
  ExpectParsed<unsigned>(log, "-1", false, 0);
}

}  // namespace
