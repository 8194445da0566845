// Checked conversions of numbers and of texts.
#include "forge/numbers.h"

#include <cmath>
#include <limits>
#include <string>

#include "forge/strings.h"
#include "tests/support/log_capture.h"
#include "tests/support/test_base.h"

namespace {

class NumbersTest : public test::TestBase {
 protected:
  template <typename T>
  void ExpectParsed(const std::string& text, bool parsed, T expected) {
    T out = 77;
    EXPECT_EQ(parsed, forge::strings::ParseInt(text, out)) << text;
    EXPECT_EQ(expected, out) << text;
    if (parsed) return;
    const std::string quoted = "string \"" + text + "\" to integer value.";
    const std::string cause = text.empty() ? "empty string to uint." : quoted;
    EXPECT_EQ("[warn] Could not convert " + cause, log_.TakeLine());
  }

  test::LogCapture log_;  // A line that nobody takes fails the test.
};

TEST_F(NumbersTest, DoubleIsConvertedWhenThatIsExact) {
  const double limit = std::ldexp(1.0, 63);
  const double infinity = std::numeric_limits<double>::infinity();
  const std::tuple<double, bool, int64_t, std::string> rows[] = {
      {-0.0, true, 0, ""},
      {-3.0, true, -3, ""},
      {std::ldexp(1.0, 52) + 1, true, (int64_t{1} << 52) + 1, ""},
      {std::nextafter(limit, 0), true, std::numeric_limits<int64_t>::max() - 1023, ""},
      {-limit, true, std::numeric_limits<int64_t>::min(), ""},
      {-0.999, false, 0, ""},
      {std::ldexp(1.0, 51) + 0.5, false, 0, ""},
      {std::nan(""), false, 0, "value is NaN"},
      {infinity, false, 0, "value is infinite"},
      {-infinity, false, 0, "value is infinite"},
      {limit, false, 0, "value reaches or exceeds 2^63"},
      {1e19, false, 0, "double value is out of int64_t range"},
      {std::nextafter(-limit, -infinity), false, 0, "double value is out of int64_t range"},
  };
  for (const auto& [value, exact, expected, error] : rows) {
    int64_t out = 77;
    EXPECT_EQ(exact, forge::numbers::SafeDoubleToInt64(value, out)) << value;
    EXPECT_EQ(expected, out) << value;
    if (error.empty()) continue;
    EXPECT_EQ("[error] Conversion failed: " + error, log_.TakeLine());
  }
}

TEST_F(NumbersTest, IntegerIsAllOfTheTextOrNothing) {
  ExpectParsed<long long>("-0012", true, -12);
  ExpectParsed<long long>("9223372036854775807", true, 9223372036854775807);
  ExpectParsed<long long>("-9223372036854775808", true, std::numeric_limits<long long>::min());
  for (const char* bad : {"", "-", "+5", " 5", "5 ", "12ab", "--1", "0x1", "9223372036854775808",
                          "-9223372036854775809"}) {
    ExpectParsed<long long>(bad, false, 0);
  }
  ExpectParsed<long long>(std::string("5\0", 2), false, 0);
  ExpectParsed<uint8_t>("255", true, 255);
  ExpectParsed<uint8_t>("256", false, 0);
  ExpectParsed<unsigned>("-1", false, 0);
}

}  // namespace
