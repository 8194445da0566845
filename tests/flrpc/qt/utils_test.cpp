#include "flrpc/qt/utils.h"

#include <gtest/gtest.h>

#include <cmath>

#include <QJsonArray>
#include <QJsonDocument>

#include "tests/support/log_capture.h"
#include "tests/support/values.h"

namespace {

using List = cw::EncodableList;
using Map = cw::EncodableMap;
using Value = cw::EncodableValue;
using Lines = std::vector<std::string>;
using flrpc::qt::EncodableMapToJsonString;
using flrpc::qt::EncodableToJson;
using flrpc::qt::JsonToEncodable;

struct UtilsTest : testing::Test {
  test::LogCapture log_;
};

// What JSON cannot tell apart comes back as the narrowest that holds it.
TEST_F(UtilsTest, EveryAlternativeHasItsJson) {
  struct Row {
    std::string text;
    Value value;
    Value from = value;  // Another value whose JSON is the same.
  };
  const Row rows[] = {
      {"null", {}},
      {"true", true},
      {"2147483647", 2147483647},
      {"-2147483648", INT32_MIN},
      {"2147483648", int64_t{2147483648}},
      {"0.25", 0.25},
      {"\"a\\\"\xc3\xa4\xf0\x9f\x98\x80\"", "a\"\xc3\xa4\xf0\x9f\x98\x80"},
      {"[1,-2]", std::vector<int32_t>{1, -2}},
      {"[1,4294967296]", std::vector<int64_t>{1, 4294967296}},
      {"[0.5,2]", std::vector<double>{0.5, 2}},
      {"[1,\"a\",[true]]", List{1, "a", List{true}}},
      {"{\"a\":{},\"b\":1}", Map{{"b", 1}, {"a", Map()}}},
      {"3", 3, 3.0},
      {"\"AAE=\"", "AAE=", std::vector<uint8_t>{0, 1}},
      {"[0.5]", std::vector<double>{0.5}, std::vector<float>{0.5f}},
      {"[1,2]", std::vector<int32_t>{1, 2}, std::vector<double>{1, 2}},
      {"\"\xef\xbf\xbd\"", "\xef\xbf\xbd", "\xff"},
      {"{\"\xef\xbf\xbd\":2}", Map{{"\xef\xbf\xbd", 2}}, Map{{"\xfe", 1}, {"\xff", 2}}},
  };
  for (const auto& [text, value, from] : rows) {
    QJsonValue json;
    Value back;
    EXPECT_TRUE(EncodableToJson(from, json)) << text;
    const QByteArray shown = QJsonDocument(QJsonArray{json}).toJson(QJsonDocument::Compact);
    EXPECT_EQ("[" + text + "]", shown.toStdString());
    EXPECT_TRUE(JsonToEncodable(json, back)) << text;
    EXPECT_EQ(value, back);
  }
}

TEST_F(UtilsTest, WhatJsonCannotHoldIsRefused) {
  for (const Value& value :
       List{HUGE_VAL, -HUGE_VAL, std::nan(""), std::vector<double>{HUGE_VAL},
            std::vector<float>{NAN}, cw::CustomEncodableValue(1), Map{{1, 2}}}) {
    QJsonValue json;
    EXPECT_FALSE(EncodableToJson(value, json));
    EXPECT_TRUE(EncodableMapToJsonString({{"key", List{1, value}}}).isNull());
    EXPECT_EQ(2u, log_.TakeLines().size());
  }
  EXPECT_EQ("{\"a\":[1,null]}", EncodableMapToJsonString({{"a", List{1, {}}}}).toStdString());
}

TEST_F(UtilsTest, OddJsonIsTakenOrRefused) {
  Value value;
  EXPECT_FALSE(JsonToEncodable(QJsonValue(QJsonValue::Undefined), value));
  EXPECT_EQ("[error] The JSON value cannot be represented as a EncodableValue", log_.TakeLine());
  Map map{{"old", 1}};
  EXPECT_TRUE(flrpc::qt::JsonObjectToEncodableMap({{QStringLiteral("new"), 2}}, map));
  EXPECT_EQ((Map{{"new", 2}}), map);
}

// Qt's own parser takes 1,024 levels; its containers recurse, and end the process far beyond.
TEST_F(UtilsTest, NestingIsLimitedBothWays) {
  for (const std::string level : {"0c01", "0d0107016b"}) {  // A list; a map whose key is "k".
    std::string hex = level.substr(0, 2) + "00";
    for (int i = 1; i < 1024; ++i) hex = level + hex;
    const Value deepest = Value::Deserialize(forge::Buffer(test::FromHex(hex)));
    QJsonValue json, unused;
    Value back;
    EXPECT_TRUE(EncodableToJson(deepest, json));
    EXPECT_TRUE(JsonToEncodable(json, back));
    EXPECT_EQ(deepest, back);
    EXPECT_FALSE(EncodableToJson(List{deepest}, unused));
    EXPECT_FALSE(EncodableToJson(Map{{"k", deepest}}, unused));
    EXPECT_FALSE(JsonToEncodable(QJsonArray{json}, back));
    EXPECT_FALSE(JsonToEncodable(QJsonObject{{QStringLiteral("k"), json}}, back));
    const std::string error = "[error] Values nested deeper than 1024 levels cannot be converted";
    EXPECT_EQ(Lines(4, error), log_.TakeLines());
  }
}

}  // namespace
