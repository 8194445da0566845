#include "flrpc/qt/utils.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include <QJsonArray>
#include <QJsonDocument>

#include "tests/support/log_capture.h"
#include "tests/support/values.h"

namespace {

using cw::EncodableList;
using cw::EncodableMap;
using cw::EncodableValue;

// JSON text is an array of the one value, so that scalars can be told as text, too.
std::string Show(const QJsonValue& json) {
  return QJsonDocument(QJsonArray{json}).toJson(QJsonDocument::Compact).toStdString();
}
QJsonValue Parse(const std::string& text) {
  return QJsonDocument::fromJson(QByteArray::fromStdString(text)).array().at(0);
}

class UtilsTest : public testing::Test {
 protected:
  test::LogCapture log_;
};

TEST_F(UtilsTest, EveryAlternativeHasItsJson) {
  struct Row {
    EncodableValue value;
    const char* json;
    bool comes_back;  // As the value that it was.
  };
  const Row rows[] = {
      {EncodableValue(), "[null]", true},
      {true, "[true]", true},
      {int32_t{-5}, "[-5]", true},
      {int64_t{4294967296}, "[4294967296]", true},
      {0.25, "[0.25]", true},
      {"a\"\xc3\xa4\xf0\x9f\x98\x80", "[\"a\\\"\xc3\xa4\xf0\x9f\x98\x80\"]", true},
      {std::vector<int32_t>{1, -2}, "[[1,-2]]", true},
      {std::vector<int64_t>{1, 4294967296}, "[[1,4294967296]]", true},
      {std::vector<double>{0.5, 2}, "[[0.5,2]]", true},
      {EncodableList{}, "[[]]", true},
      {EncodableList{1, "a", EncodableList{true}}, "[[1,\"a\",[true]]]", true},
      {EncodableMap{{"b", 1}, {"a", EncodableMap{}}}, "[{\"a\":{},\"b\":1}]", true},
      // What JSON cannot tell apart.
      {int64_t{3}, "[3]", false},
      {3.0, "[3]", false},
      {int64_t{9007199254740993}, "[9007199254740992]", false},
      {std::vector<uint8_t>{0, 1}, "[\"AAE=\"]", false},
      {std::vector<float>{0.5f}, "[[0.5]]", false},
      {std::vector<int32_t>{}, "[[]]", false},
      {std::vector<double>{1, 2}, "[[1,2]]", false},
      {EncodableList{1, 2}, "[[1,2]]", false},
      {"\xff", "[\"\xef\xbf\xbd\"]", false},
      {"\xef\xbb\xbftext", "[\"text\"]", false},  // A byte order mark.
      {EncodableMap{{"\xfe", 1}, {"\xff", 2}}, "[{\"\xef\xbf\xbd\":2}]", false},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.json);
    QJsonValue json;
    EXPECT_TRUE(flrpc::qt::EncodableToJson(row.value, json));
    EXPECT_EQ(row.json, Show(json));
    EncodableValue back;
    EXPECT_TRUE(flrpc::qt::JsonToEncodable(json, back));
    EXPECT_EQ(row.comes_back, row.value == back);
  }
}

TEST_F(UtilsTest, WhatJsonCannotHoldIsRefusedAtAnyDepth) {
  const double infinity = std::numeric_limits<double>::infinity();
  const float nan = std::nanf("");
  const std::pair<EncodableValue, const char*> rows[] = {
      {infinity, "Infinite double value cannot be represented as a JSON value"},
      {-infinity, "Infinite double value cannot be represented as a JSON value"},
      {std::nan(""), "Non-a-number value cannot be represented as a JSON value"},
      {std::vector<double>{infinity},
       "Infinite double value cannot be represented as a JSON value"},
      {std::vector<float>{nan}, "Non-a-number value cannot be represented as a JSON value"},
      {cw::CustomEncodableValue(1), "The EncodableValue cannot be represented as a JSON value"},
      {EncodableMap{{1, 2}}, "The key used to create a JSON object must have a string value"},
  };
  for (const auto& [value, error] : rows) {
    SCOPED_TRACE(error);
    QJsonValue json;
    EXPECT_FALSE(flrpc::qt::EncodableToJson(value, json));
    EXPECT_EQ(std::string("[error] ") + error, log_.TakeLine());
    const EncodableMap map{{"key", EncodableList{1, value}}};
    EXPECT_TRUE(flrpc::qt::EncodableMapToJsonString(map).isNull());
    EXPECT_EQ(std::string("[error] ") + error, log_.TakeLine());
  }
  EXPECT_EQ("{\"a\":[1,null]}",
            flrpc::qt::EncodableMapToJsonString({{"a", EncodableList{1, EncodableValue()}}})
                .toStdString());
}

TEST_F(UtilsTest, NumbersAndArraysBecomeTheNarrowestThatHoldsThem) {
  const std::string range = "[error] Conversion failed: double value is out of int64_t range";
  struct Row {
    const char* json;
    EncodableValue value;
    size_t range_errors;
  };
  const Row rows[] = {
      {"[3.0]", int32_t{3}, 0},
      {"[-0.0]", int32_t{0}, 0},
      {"[2147483647]", int32_t{2147483647}, 0},
      {"[2147483648]", int64_t{2147483648}, 0},
      {"[-2147483648]", std::numeric_limits<int32_t>::min(), 0},
      {"[-2147483649]", int64_t{-2147483649}, 0},
      {"[1e10]", int64_t{10000000000}, 0},
      {"[3.5]", 3.5, 0},
      {"[1e300]", 1e300, 1},
      {"[[1,2,3]]", std::vector<int32_t>{1, 2, 3}, 0},
      {"[[1,4294967296]]", std::vector<int64_t>{1, 4294967296}, 0},
      {"[[1,2.5]]", std::vector<double>{1, 2.5}, 0},
      {"[[1,1e300]]", std::vector<double>{1, 1e300}, 2},  // Once for each integer list tried.
      {"[[1,\"a\"]]", EncodableList{1, "a"}, 0},
      {"[[1,null]]", EncodableList{1, EncodableValue()}, 0},
      {"[[[1],[]]]", EncodableList{std::vector<int32_t>{1}, EncodableList{}}, 0},
      {"[{\"a\":4294967296}]", EncodableMap{{"a", int64_t{4294967296}}}, 0},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.json);
    EncodableValue value;
    EXPECT_TRUE(flrpc::qt::JsonToEncodable(Parse(row.json), value));
    EXPECT_EQ(row.value, value);
    EXPECT_EQ(row.value.GetIndex(), value.GetIndex());
    EXPECT_EQ(std::vector<std::string>(row.range_errors, range), log_.TakeLines());
  }
  EncodableValue value;
  EXPECT_FALSE(flrpc::qt::JsonToEncodable(QJsonValue(QJsonValue::Undefined), value));
  EXPECT_EQ("[error] The JSON value cannot be represented as a EncodableValue", log_.TakeLine());
  EXPECT_TRUE(flrpc::qt::JsonToEncodable(QString(QChar(0xD800)), value));  // Half a pair.
  EXPECT_EQ(EncodableValue("?"), value);
  EncodableMap map{{"old", 1}};
  EXPECT_TRUE(flrpc::qt::JsonObjectToEncodableMap({{QStringLiteral("new"), 2}}, map));
  EXPECT_EQ((EncodableMap{{"new", 2}}), map);
}

// Qt's own parser takes 1,024 levels; its containers recurse, and end the process far beyond.
TEST_F(UtilsTest, NestingIsLimitedBothWays) {
  const std::string error = "[error] Values nested deeper than 1024 levels cannot be converted";
  EncodableValue list = EncodableList{}, map = EncodableMap{};
  for (int level = 1; level < 1024; ++level) {
    EncodableList around;
    around.push_back(std::move(list));  // A braced list would copy all levels.
    list = std::move(around);
    EncodableMap above;
    above.emplace("k", std::move(map));
    map = std::move(above);
  }
  QJsonValue list_json, map_json, json;
  EncodableValue back;
  EXPECT_TRUE(flrpc::qt::EncodableToJson(list, list_json));
  EXPECT_TRUE(flrpc::qt::EncodableToJson(map, map_json));
  EXPECT_TRUE(flrpc::qt::JsonToEncodable(list_json, back));
  EXPECT_EQ(list, back);
  EXPECT_TRUE(flrpc::qt::JsonToEncodable(map_json, back));
  EXPECT_EQ(map, back);
  for (const EncodableValue& deeper :
       {EncodableValue(EncodableList{list}), EncodableValue(EncodableMap{{"k", map}}),
        EncodableValue(EncodableMap{{"k", list}})}) {
    EXPECT_FALSE(flrpc::qt::EncodableToJson(deeper, json));
    EXPECT_EQ(error, log_.TakeLine());
  }
  EncodableMap out;
  EXPECT_FALSE(flrpc::qt::JsonToEncodable(QJsonArray{list_json}, back));
  EXPECT_EQ(error, log_.TakeLine());
  EXPECT_FALSE(flrpc::qt::JsonObjectToEncodableMap({{QStringLiteral("k"), map_json}}, out));
  EXPECT_EQ(error, log_.TakeLine());
}

}  // namespace
