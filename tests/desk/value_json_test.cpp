#include "desk/common/value_json.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <nlohmann/json.hpp>
#include <random>

#include "desk/common/json_text.h"
#include "tests/support/scale.h"
#include "tests/support/values.h"

namespace desk {
namespace {

using List = cw::EncodableList;
using Map = cw::EncodableMap;
using Value = cw::EncodableValue;

class Generator {
 public:
  Value Make(size_t levels) {
    switch (Draw(levels == 0 ? 10 : 12)) {
      case 0:
        return {};
      case 1:
        return Draw(2) == 0;
      case 2:
        return Number<int32_t>();
      case 3:
        return Value(std::in_place_type<int64_t>, Number<int64_t>());
      case 4:
        return Number<double>();
      case 5:
        return Text();
      case 6:
        return Numbers<uint8_t>();
      case 7:
        return Draw(2) == 0 ? Value(Numbers<int32_t>()) : Value(Numbers<float>());
      case 8:
        return Numbers<int64_t>();
      case 9:
        return Numbers<double>();
      case 10: {
        List list(Draw(4));
        for (Value& element : list) element = Make(levels - 1);
        return list;
      }
      default: {
        Map map;
        const bool is_plain = Draw(2) == 0;
        for (size_t i = Draw(3) + 1; i > 0; --i)
          map[is_plain ? Text() : Make(1)] = Make(levels - 1);
        return map;
      }
    }
  }

 private:
  size_t Draw(size_t count) { return random_() % count; }

  template <typename T>
  T Number() {
    if (Draw(2) == 0) return static_cast<T>(static_cast<int>(Draw(9)) - 4);
    T number{};
    uint64_t bits = (uint64_t{random_()} << 32 | random_()) >> Draw(34);
    if (Draw(4) == 0) bits |= sizeof(T) == 8 ? 0x7ff0000000000000 : 0x7f800000;  // NaN, infinities.
    std::memcpy(&number, &bits, sizeof number);
    return number;
  }
  template <typename T>
  std::vector<T> Numbers() {
    std::vector<T> numbers(Draw(4));
    for (T& number : numbers) number = Number<T>();
    return numbers;
  }
  std::string Text() {
    static const std::string kTexts[] = {"",
                                         "a",
                                         "$map",
                                         "$int64",
                                         "$x",
                                         std::string("\0\n\"", 3),
                                         "\xed\xa0\x80",
                                         "\xf0\x9f\x98\x80",
                                         "\xff",
                                         "\xc3"};
    return kTexts[Draw(std::size(kTexts))];
  }

  std::mt19937 random_{test::GetSeed()};
};

TEST(ValueJsonTest, EveryValueComesBackBitByBit) {
  Generator generator;
  for (int i = 0; i < 5000 * test::GetScale(); ++i) {
    const Value value = generator.Make(4);
    const std::string text = ToText(value);
    const Value back = FromJson(ParseJson(text));
    ASSERT_EQ(test::ToHex(test::BytesOf(value.Serialize())),
              test::ToHex(test::BytesOf(back.Serialize())))
        << text;
  }
}

TEST(ValueJsonTest, MarksStandWhereJsonWouldLoseSomething) {
  const auto wide = [](int64_t number) { return Value(std::in_place_type<int64_t>, number); };
  const std::pair<Value, const char*> rows[] = {
      {List{{}, true, 7, 1.0, -0.0, 1e300, "\xc3\xa4"}, R"([null,true,7,1.0,-0.0,1e+300,"ä"])"},
      {List{wide(7), wide(2147483648), wide(-9007199254740992)},
       R"([{"$int64":"7"},2147483648,{"$int64":"-9007199254740992"}])"},
      {std::vector<int64_t>{7, INT64_MIN}, R"({"$int64s":[7,"-9223372036854775808"]})"},
      {std::vector<float>{0.1F, -INFINITY}, R"({"$float32s":[0.1,"-Infinity"]})"},
      {std::vector<float>{FLT_MAX}, R"({"$float32s":[3.4028235e+38]})"},
      {"\x7f\xc2\x80\xc2\x9f\xc2\xa0", "\"\\u007f\\u0080\\u009f\xc2\xa0\""},
      {std::vector<uint8_t>{1, 2}, R"({"$bytes":"AQI="})"},
      {"\xff", R"({"$text":"/w=="})"},
      {Map{{"$bytes", 1}}, R"({"$map":[["$bytes",1]]})"},
      {Map{{"$bytes", 1}, {"b", 2}}, R"({"$bytes":1,"b":2})"},
      {Map{{"$ref", 1}}, R"({"$ref":1})"},
      {Map{{1, 2}, {"b", 3}}, R"({"$map":[[1,2],["b",3]]})"},
  };
  for (const auto& [value, text] : rows) {
    EXPECT_EQ(ToText(value), text);
    EXPECT_EQ(FromJson(ParseJson(text)), value);
  }
  EXPECT_EQ(ToText(List{wide(7), wide(INT64_MAX)}, SmallInt64::kPlain),
            R"([7,{"$int64":"9223372036854775807"}])");
}

std::string Nested(const std::string& open, size_t levels, const std::string& close) {
  std::string text;
  for (size_t i = 0; i < levels; ++i) text += open;
  text += '1';
  for (size_t i = 0; i < levels; ++i) text += close;
  return text;
}

TEST(ValueJsonTest, ErrorNamesThePlace) {
  const auto error = [](const std::string& text) -> std::string {
    try {
      ToJson(List{FromJson(ParseJson(text))});
      return "";
    } catch (const std::runtime_error& fault) {
      return fault.what();
    }
  };
  const std::pair<std::string, std::string> rows[] = {
      {R"({"items": [1, {"$int64": "x"}]})", "$.items[1].$int64"},
      {R"({"a b": {"$map": [[1, 2], [1]]}})", R"($["a b"].$map[1])"},
      {R"({"$map": [[1, {"$bytes": "?"}]]})", "$.$map[0][1].$bytes"},
      {R"({"$map": [[1, 2], [1, 3]]})", "$.$map[1]"},
      {R"({"$int32s": [1, 2147483648]})", "$.$int32s[1]"},
      {R"({"$int32s": [1.0]})", "$.$int32s[0]"},
      {R"({"$int64": 9223372036854775808})", "$.$int64"},
      {R"({"$float32s": [1e39]})", "$.$float32s[0]"},
      {R"j({"$float64": "NaN(7ff0000000000000)"})j", "$.$float64"},
      {R"j({"$float64": "NaN(1)x"})j", "$.$float64"},
      {R"({"$text": 1})", "$.$text"},
      {R"({"a": 1, "a": 2})", R"(the key "a" stands twice in one object)"},
      {"[1e999]", "number overflow"},
      {"", "line 1, column 1"},
      {Nested("[", 1025, "]"), "$[0][0][0][0][0][0][0][0]...[0][0][0][0][0][0][0][0]: it is"},
      {Nested(R"({"$map":[[1,)", 1025, "]]}"), "$.$map[0][1].$map"},
      {Nested("[", 1000000, "]"), "it is nested too deeply"},
  };
  for (const auto& [text, place] : rows) {
    EXPECT_EQ(error(text).substr(0, place.size()), place) << error(text);
  }
  EXPECT_EQ(error(Nested(R"([{"$bytes":""},)", 1024, "]")), "");
  EXPECT_EQ(error(Nested(R"({"$map":[[1,)", 1024, "]]}")), "");
  EXPECT_THROW(ToJson(List{Value(cw::CustomEncodableValue(1))}), std::runtime_error);
}

}  // namespace
}  // namespace desk
