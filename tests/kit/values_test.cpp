#include "kit/values.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <stdexcept>

#include "cw/method_call.h"
#include "cw/standard_method_codec.h"
#include "tests/support/values.h"

namespace {

using cw::EncodableList;
using cw::EncodableMap;
using cw::EncodableValue;
namespace kit = tavo::kit;

enum class Color { kRed, kDarkGreen, plain };
TAVO_DESCRIBE_ENUM(Color, kRed, kDarkGreen, plain)

struct Size {
  int32_t width = 0;
  uint8_t height = 0;
};
TAVO_DESCRIBE(Size, width, height)

struct Item {
  std::string name;
  std::optional<Color> color;
  std::vector<Size> sizes;
};
TAVO_DESCRIBE(Item, name, color, sizes)

struct Node {
  std::vector<Node> children;
};
TAVO_DESCRIBE(Node, children)

template <typename T>
std::string WhyNot(const EncodableValue& value) {
  const auto result = kit::To<T>(value, "params");
  if (result) return "it fits";
  EXPECT_EQ(kit::Cause::kBadValue, result.GetFailure().cause);
  return result.GetFailure().error.message;
}

// The object travels as this value, and the value is read as an object that travels so again.
template <typename T>
void ExpectTravels(const EncodableValue& value, T object) {
  EXPECT_EQ(value, kit::From(object));
  const auto read = kit::To<T>(value);
  ASSERT_TRUE(read) << read.GetFailure().error.message;
  EXPECT_EQ(value, kit::From(*read));
  EXPECT_EQ(value, kit::From(std::move(object)));
}

template <typename T>
std::optional<T> Read(const EncodableValue& value) {
  auto result = kit::To<T>(value);
  return result ? std::optional<T>(*result) : std::nullopt;
}

TEST(ValuesTest, EveryTypeTravelsThereAndBack) {
  ExpectTravels(true, true);
  ExpectTravels(int32_t{-7}, int8_t{-7});
  ExpectTravels(int64_t{7}, uint32_t{7});
  ExpectTravels(std::numeric_limits<int64_t>::min(), std::numeric_limits<long long>::min());
  ExpectTravels(int64_t{7}, uint64_t{7});
  ExpectTravels(0.5, 0.5F);
  ExpectTravels("text", std::string("text"));
  ExpectTravels({}, std::monostate());
  ExpectTravels({}, std::optional<int>());
  ExpectTravels(test::Bytes{1, 2}, test::Bytes{1, 2});
  ExpectTravels(test::Bytes{1, 2}, std::array<uint8_t, 2>{1, 2});
  ExpectTravels(std::vector<float>{0.5F}, std::vector<float>{0.5F});
  ExpectTravels(EncodableList{true, false}, std::vector<bool>{true, false});
  ExpectTravels(EncodableList{int32_t{1}, {}}, std::vector<std::optional<int16_t>>{1, {}});
  ExpectTravels(EncodableList{"a", int32_t{1}}, std::pair<std::string, int>("a", 1));
  ExpectTravels(EncodableList{0.5}, std::tuple<double>(0.5));
  ExpectTravels(EncodableMap{{int32_t{2}, "two"}}, std::map<int, std::string>{{2, "two"}});
  ExpectTravels(EncodableMap{{"any", EncodableList{}}}, EncodableMap{{"any", EncodableList{}}});
  ExpectTravels("darkGreen", Color::kDarkGreen);
  ExpectTravels("plain", Color::plain);
  const EncodableMap size = {{"width", 3}, {"height", 4}};
  ExpectTravels(EncodableMap{{"name", "n"}, {"sizes", EncodableList{size}}},
                Item{"n", {}, {Size{3, 4}}});
  ExpectTravels(
      EncodableMap{{"children", EncodableList{EncodableMap{{"children", EncodableList{}}}}}},
      Node{{Node{}}});
}

TEST(ValuesTest, NumbersConvertWhenTheyFitExactly) {
  EXPECT_EQ(5, Read<int>(5.0));
  EXPECT_EQ(5, Read<int64_t>(int32_t{5}));
  EXPECT_EQ(5, Read<int16_t>(int64_t{5}));
  EXPECT_EQ(uint64_t{1} << 63, Read<uint64_t>(9223372036854775808.0));
  EXPECT_EQ(5.0, Read<double>(int64_t{5}));
  EXPECT_EQ(0.1F, Read<float>(0.1));
  EXPECT_TRUE(std::isnan(*Read<float>(std::nan(""))));
  EXPECT_EQ((std::vector<int64_t>{1, 2}), Read<std::vector<int64_t>>(std::vector<double>{1, 2}));
  EXPECT_EQ((std::vector<uint8_t>{1, 2}), Read<std::vector<uint8_t>>(EncodableList{1, 2.0}));
  EXPECT_EQ((std::vector<double>{1, 2}), Read<std::vector<double>>(test::Bytes{1, 2}));

  EXPECT_EQ("params: an integer is expected, not 0.5", WhyNot<int>(0.5));
  EXPECT_EQ("params: an integer is expected, not nan", WhyNot<int64_t>(std::nan("")));
  EXPECT_EQ("params: an integer from -128 to 127 is expected, not 128", WhyNot<int8_t>(128));
  EXPECT_EQ("params: an integer from 0 to 4294967295 is expected, not -1", WhyNot<uint32_t>(-1.0));
  EXPECT_NE("it fits", WhyNot<int64_t>(9223372036854775808.0));
  EXPECT_NE("it fits", WhyNot<double>(std::numeric_limits<int64_t>::max()));
  EXPECT_NE("it fits", WhyNot<float>(16777217));
  EXPECT_NE("it fits", WhyNot<float>(1e300));
  EXPECT_EQ("params[1]: an integer from 0 to 255 is expected, not 256",
            WhyNot<std::vector<uint8_t>>(std::vector<int32_t>{255, 256}));
  EXPECT_THROW(kit::From(std::numeric_limits<uint64_t>::max()), std::range_error);
  EXPECT_THROW(kit::From(static_cast<Color>(9)), std::range_error);
}

TEST(ValuesTest, AMismatchNamesItsPlace) {
  const auto item = [](const EncodableValue& name, const EncodableValue& sizes) {
    return EncodableMap{{"name", name}, {"sizes", sizes}, {"unknown", 1}};
  };
  using Items = std::map<std::string, Item>;
  const EncodableMap size = {{"width", 1}, {"height", "high"}};
  const std::string noisy = "two\nlines " + std::string(1000, 'x');
  const struct {
    EncodableValue value;
    std::string mismatch;
  } rows[] = {
      {item("n", EncodableList{}), "it fits"},
      {item({}, EncodableList{}), ".name: a text is expected, not null"},
      {EncodableMap{}, ".name: a text is expected, but it is missing"},
      {"item", ": a map is expected, not a text"},
      {item("n", EncodableMap{}), ".sizes: a list is expected, not a map"},
      {item("n", EncodableList{size}), ".sizes[0].height: an integer is expected, not a text"},
      {EncodableMap{{"name", "n"}, {"color", noisy}},
       ".color: one of \"red\", \"darkGreen\", \"plain\" is expected, not \"two?lines " +
           std::string(30, 'x') + "...\""},
  };
  for (const auto& [value, mismatch] : rows) {
    const bool fits = mismatch == "it fits";
    EXPECT_EQ(fits ? mismatch : "params" + mismatch, WhyNot<Item>(value));
    EXPECT_EQ(fits ? mismatch : "params[\"a\"]" + mismatch,
              WhyNot<Items>(EncodableMap{{"a", value}}));
  }
  EXPECT_EQ("params[\"a\"].(key): an integer is expected, not a text",
            (WhyNot<std::map<int, int>>(EncodableMap{{"a", 1}})));
  EXPECT_EQ("params: a list of 2 is expected, not of 1",
            (WhyNot<std::array<int, 2>>(EncodableList{1})));
  EXPECT_EQ("params: a list of 1 is expected, not of 2",
            (WhyNot<std::tuple<int>>(std::vector<int32_t>{1, 2})));
}

TEST(ValuesTest, DeepValuesAreRefusedShortly) {
  EncodableValue value;
  for (int i = 0; i < 20000; ++i) {
    EncodableList children;
    children.push_back(std::move(value));
    EncodableMap node;
    node.emplace("children", std::move(children));
    value = std::move(node);
  }
  const std::string step = ".children[0]";
  EXPECT_EQ("params..." + step + step + step + step + step + step + step + step +
                ": the value is nested too deeply",
            WhyNot<Node>(value));
  EXPECT_EQ(value, *kit::To<EncodableValue>(value));
}

// Arguments and results of a method channel.
TEST(ValuesTest, MethodCallsCarryTypes) {
  const auto& codec = cw::StandardMethodCodec::GetInstance();
  const cw::MethodCall<EncodableValue> call(
      "resize", std::make_unique<EncodableValue>(kit::From(Size{1920, 200})));
  const auto bytes = codec.EncodeMethodCall(call);
  const auto received = codec.DecodeMethodCall(bytes.GetData(), bytes.GetSize());
  const auto size = kit::To<Size>(*received->GetArguments(), "arguments");
  ASSERT_TRUE(size);
  EXPECT_EQ(1920, size->width);
  EXPECT_EQ(200, size->height);
}

}  // namespace
