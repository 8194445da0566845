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

using flrpc::qt::EncodableToJson;
using flrpc::qt::JsonToEncodable;

class UtilsTest : public testing::Test {
 protected:
  test::LogCapture log_;
};

// What JSON cannot tell apart comes back as the narrowest that holds it.
TEST_F(UtilsTest, EveryAlternativeHasItsJson) {
  const EncodableValue null;
  const int32_t least = std::numeric_limits<int32_t>::min();
  const auto same = [](const EncodableValue& value) { return std::pair(value, value); };
  const std::pair<std::pair<EncodableValue, EncodableValue>, const char*> rows[] = {
      {same(null), "null"},
      {same(true), "true"},
      {same(2147483647), "2147483647"},
      {same(least), "-2147483648"},
      {same(int64_t{2147483648}), "2147483648"},
      {same(int64_t{least} - 1), "-2147483649"},
      {same(0.25), "0.25"},
      {same(1e300), "1e+300"},
      {same("a\"\xc3\xa4\xf0\x9f\x98\x80"), "\"a\\\"\xc3\xa4\xf0\x9f\x98\x80\""},
      {same(std::vector<int32_t>{1, -2}), "[1,-2]"},
      {same(std::vector<int64_t>{1, 4294967296}), "[1,4294967296]"},
      {same(std::vector<double>{0.5, 2}), "[0.5,2]"},
      {same(std::vector<double>{1, 1e300}), "[1,1e+300]"},
      {same(EncodableList{}), "[]"},
      {same(EncodableList{1, "a", EncodableList{true}}), "[1,\"a\",[true]]"},
      {same(EncodableList{1, null}), "[1,null]"},
      {same(EncodableMap{{"b", 1}, {"a", EncodableMap{}}}), "{\"a\":{},\"b\":1}"},
      {{int64_t{3}, 3}, "3"},
      {{3.0, 3}, "3"},
      {{int64_t{9007199254740993}, int64_t{9007199254740992}}, "9007199254740992"},
      {{std::vector<uint8_t>{0, 1}, "AAE="}, "\"AAE=\""},
      {{std::vector<float>{0.5f}, std::vector<double>{0.5}}, "[0.5]"},
      {{std::vector<int32_t>{}, EncodableList{}}, "[]"},
      {{std::vector<double>{1, 2}, std::vector<int32_t>{1, 2}}, "[1,2]"},
      {{EncodableList{1, 2}, std::vector<int32_t>{1, 2}}, "[1,2]"},
      {{"\xff", "\xef\xbf\xbd"}, "\"\xef\xbf\xbd\""},
      {{"\xef\xbb\xbftext", "text"}, "\"text\""},  // A byte order mark.
      {{EncodableMap{{"\xfe", 1}, {"\xff", 2}}, EncodableMap{{"\xef\xbf\xbd", 2}}},
       "{\"\xef\xbf\xbd\":2}"},
  };
  for (const auto& [values, text] : rows) {
    SCOPED_TRACE(text);
    QJsonValue json;
    EncodableValue back;
    EXPECT_TRUE(EncodableToJson(values.first, json));
    const QByteArray shown = QJsonDocument(QJsonArray{json}).toJson(QJsonDocument::Compact);
    EXPECT_EQ("[" + std::string(text) + "]", shown.toStdString());
    EXPECT_TRUE(JsonToEncodable(json, back));
    EXPECT_EQ(values.second, back);
    for (const std::string& line : log_.TakeLines()) {  // One for each integer type tried.
      EXPECT_EQ("[error] Conversion failed: double value is out of int64_t range", line);
      EXPECT_NE(std::string::npos, std::string(text).find("1e+300"));
    }
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
    EXPECT_FALSE(EncodableToJson(value, json));
    EXPECT_EQ(std::string("[error] ") + error, log_.TakeLine());
    const EncodableMap map{{"key", EncodableList{1, value}}};
    EXPECT_TRUE(flrpc::qt::EncodableMapToJsonString(map).isNull());
    EXPECT_EQ(std::string("[error] ") + error, log_.TakeLine());
  }
  EXPECT_EQ("{\"a\":[1,null]}",
            flrpc::qt::EncodableMapToJsonString({{"a", EncodableList{1, EncodableValue()}}})
                .toStdString());
}

TEST_F(UtilsTest, OddJsonIsTakenOrRefused) {
  EncodableValue value;
  EXPECT_FALSE(JsonToEncodable(QJsonValue(QJsonValue::Undefined), value));
  EXPECT_EQ("[error] The JSON value cannot be represented as a EncodableValue", log_.TakeLine());
  EXPECT_TRUE(JsonToEncodable(QString(QChar(0xD800)), value));  // Half a pair.
  EXPECT_EQ(EncodableValue("?"), value);
  EXPECT_TRUE(JsonToEncodable(-0.0, value));
  EXPECT_EQ(EncodableValue(0), value);
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
  EXPECT_TRUE(EncodableToJson(list, list_json));
  EXPECT_TRUE(EncodableToJson(map, map_json));
  EXPECT_TRUE(JsonToEncodable(list_json, back));
  EXPECT_EQ(list, back);
  EXPECT_TRUE(JsonToEncodable(map_json, back));
  EXPECT_EQ(map, back);
  for (const EncodableValue& deeper :
       {EncodableValue(EncodableList{list}), EncodableValue(EncodableMap{{"k", map}}),
        EncodableValue(EncodableMap{{"k", list}})}) {
    EXPECT_FALSE(EncodableToJson(deeper, json));
    EXPECT_EQ(error, log_.TakeLine());
  }
  EncodableMap out;
  EXPECT_FALSE(JsonToEncodable(QJsonArray{list_json}, back));
  EXPECT_EQ(error, log_.TakeLine());
  EXPECT_FALSE(flrpc::qt::JsonObjectToEncodableMap({{QStringLiteral("k"), map_json}}, out));
  EXPECT_EQ(error, log_.TakeLine());
}

}  // namespace
