#include "flrpc/message.h"

#include <gtest/gtest.h>

#include <limits>
#include <unordered_set>

#include "tests/support/log_capture.h"
#include "tests/support/values.h"

namespace {

using cw::EncodableList;
using cw::EncodableMap;
using cw::EncodableValue;
using flrpc::Message;
using Type = Message::Type;

constexpr int64_t kMin32 = std::numeric_limits<int32_t>::min();

// With the member that all messages have.
EncodableMap Frame(EncodableMap members) {
  members.emplace("jsonrpc", "2.0");
  return members;
}

class MessageTest : public testing::Test {
 protected:
  test::LogCapture log_;
};

TEST_F(MessageTest, IdentifierIsATextHoweverItWasMade) {
  using ID = Message::ID;
  EXPECT_TRUE(ID(5) == ID("5") && ID("5") == 5 && ID(5) == "5" &&
              ID(5).GetHash() == ID("5").GetHash());
  EXPECT_TRUE(ID("05") != 5 && ID("5") != ID("5 ") && ID(std::string_view("5\0", 2)) != "5");
  EXPECT_EQ("-9223372036854775808", ID(std::numeric_limits<int64_t>::min()).GetText());
  EXPECT_EQ(EncodableValue("7"), ID(7).ToEncodable());
  EXPECT_EQ(1u, (std::unordered_set<ID>{ID(1), ID("1")}).size());

  const std::pair<EncodableValue, const char*> rows[] = {
      {"text", "text"},
      {"", ""},
      {7, "7"},
      {int64_t{-5000000000}, "-5000000000"},
      {EncodableMap{{"id", "inner"}, {"other", 1}}, "inner"},
      {EncodableMap{{"id", 3}}, "3"},
      {EncodableMap{{"id", EncodableMap{{"id", 3}}}}, nullptr},
      {EncodableMap{}, nullptr},
      {EncodableValue(), nullptr},
      {1.0, nullptr},
      {true, nullptr},
      {EncodableList{"text"}, nullptr},
  };
  for (const auto& [value, text] : rows) {
    const auto id = ID::FromEncodable(value);
    ASSERT_EQ(text != nullptr, id.has_value()) << test::ToHex(test::BytesOf(value.Serialize()));
    EXPECT_EQ(text ? text : "", id ? id->GetText() : "");
  }
}

// Each kind, its map, and its bytes without the detour over the map.
TEST_F(MessageTest, EveryKindIsWrittenAndReadBack) {
  using ID = Message::ID;
  const EncodableValue params = EncodableMap{{"ratio", 0.5}, {"list", std::vector<double>{1, 2}}};
  const std::string long_text(300, 'x');
  const EncodableMap error{{"code", 7}, {"message", "m"}};
  const EncodableMap error_with_data{{"code", -1}, {"data", params}, {"message", ""}};
  struct Row {
    Message message;
    Type type;
    EncodableMap map;
  };
  const Row rows[] = {
      {Message::CreateRequest(ID(1), "m", {}), Type::kRequest, {{"id", "1"}, {"method", "m"}}},
      {Message::CreateRequest(ID(long_text), long_text, params),
       Type::kRequest,
       {{"id", long_text}, {"method", long_text}, {"params", params}}},
      {Message::CreateResponse(ID("a"), {}),
       Type::kResponse,
       {{"id", "a"}, {"result", EncodableValue()}}},
      {Message::CreateResponse(ID("a"), params),
       Type::kResponse,
       {{"id", "a"}, {"result", params}}},
      {Message::CreateError(ID("a"), 7, "m", {}), Type::kResponse, {{"id", "a"}, {"error", error}}},
      {Message::CreateError(ID("a"), -1, "", params),
       Type::kResponse,
       {{"id", "a"}, {"error", error_with_data}}},
      {Message::CreateNotification("n", {}), Type::kNotification, {{"method", "n"}}},
      {Message::CreateNotification("n", params),
       Type::kNotification,
       {{"method", "n"}, {"params", params}}},
      {Message::CreateError(7, "m", {}), Type::kError, {{"error", error}}},
      {Message::CreateError(Message::Error(-1, "", params)),
       Type::kError,
       {{"error", error_with_data}}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(&row - rows);
    const EncodableValue map = Frame(row.map);
    EXPECT_EQ(row.type, row.message.GetType());
    EXPECT_EQ(map, row.message.ToEncodable());
    EXPECT_EQ(map.Serialize().ToBase64(), row.message.ToBase64());
    for (const Message& back :
         {Message::FromEncodable(map), Message::FromEncodable(EncodableValue(map)),
          Message::FromBase64(row.message.ToBase64())}) {
      EXPECT_EQ(row.type, back.GetType());
      EXPECT_EQ(map, back.ToEncodable());
    }
  }
}

TEST_F(MessageTest, PartsAreFoundByTheirKind) {
  const Message empty;
  EXPECT_TRUE(empty.IsEmpty() && !empty.GetRequest() && Message::FromBase64("AA==").IsEmpty());
  EXPECT_EQ("AA==", empty.ToBase64());  // Null.
  EXPECT_EQ("[error] Invalid Json-RPC message", log_.TakeLine());
  const auto request = Message::CreateRequest(Message::ID("1"), "m", 5);
  EXPECT_TRUE(request.IsRequest("m") && !request.IsRequest("M") && !request.IsRequest("m "));
  const auto list = Message::CreateResponse(Message::ID(1), EncodableList{1});
  const auto map = Message::CreateResponse(Message::ID(2), EncodableMap{});
  EXPECT_TRUE(!list.GetResponse()->GetMapResult() && map.GetResponse()->GetMapResult());
  EXPECT_TRUE(request.IsResponseForThis(list) && !request.IsResponseForThis(map));
  EXPECT_FALSE(list.IsResponseForThis(request));
}

TEST_F(MessageTest, WhatIsMalformedBecomesAParseError) {
  const std::string no_object =
      "The Response Object MUST contain the error member with a value that is a Object";
  const std::pair<EncodableValue, std::string> rows[] = {
      {EncodableValue(), "Emply or invalid RPC message"},
      {EncodableList{1}, "Emply or invalid RPC message"},
      {EncodableMap{{"method", "m"}}, "Emply or invalid RPC message"},
      {EncodableMap{{"jsonrpc", "1.0"}, {"method", "m"}}, "Emply or invalid RPC message"},
      {EncodableMap{{"jsonrpc", 2.0}, {"method", "m"}}, "Emply or invalid RPC message"},
      {Frame({{"id", 1.0}, {"method", "m"}}), "Invalid id value in RPC request object"},
      {Frame({{"id", EncodableValue()}, {"method", "m"}}),
       "Invalid id value in RPC request object"},
      {Frame({{"error", 1}}), no_object},
      {Frame({{"error", EncodableMap{{"message", "m"}}}}),
       "The Error object does not have a required code field."},
      {Frame({{"error", EncodableMap{{"code", 1.0}, {"message", "m"}}}}),
       "The code field contains not integer number"},
      {Frame({{"error", EncodableMap{{"code", int64_t{4294967296}}, {"message", "m"}}}}),
       "The code field contains a value out of the supported range"},
      {Frame({{"error", EncodableMap{{"code", kMin32 - 1}, {"message", "m"}}}}),
       "The code field contains a value out of the supported range"},
      {Frame({{"error", EncodableMap{{"code", 1}}}}),
       "The Error object does not have a required messsage field."},
      {Frame({{"error", EncodableMap{{"code", 1}, {"message", 1}}}}),
       "The message field contains not string value"},
      {Frame({{"id", true}, {"error", EncodableMap{{"code", 1}, {"message", "m"}}}}),
       "Invalid id value in RPC response object"},
      {Frame({{"result", 1}}), "Invalid id value in RPC response object"},
      // Only a request may have its identifier one level deeper.
      {Frame({{"id", EncodableMap{{"id", 7}}}, {"result", 1}}),
       "Invalid id value in RPC response object"},
      {Frame({{"id", "x"}}), "Invalid RPC message"},
  };
  for (const auto& [value, text] : rows) {
    SCOPED_TRACE(text);
    const auto message = Message::FromEncodable(value);
    ASSERT_TRUE(message.IsError());
    EXPECT_EQ(-32700, message.GetError()->code);
    EXPECT_EQ(text, message.GetError()->message);
    EXPECT_TRUE(message.GetError()->data.IsNull());
  }
  const auto error =
      Message::Error::FromEncodable(EncodableMap{{"code", kMin32}, {"message", "m"}});
  EXPECT_TRUE(error.succeeded && error.error.code == kMin32);
}

TEST_F(MessageTest, OddButValidFramesAreTaken) {
  const auto method_wins = Message::FromEncodable(
      Frame({{"method", "m"}, {"error", 1}, {"params", EncodableValue()}, {"other", 2}}));
  EXPECT_EQ(Type::kNotification, method_wins.GetType());
  EXPECT_EQ(EncodableValue(Frame({{"method", "m"}})), method_wins.ToEncodable());
  const auto inner =
      Message::FromEncodable(Frame({{"id", EncodableMap{{"id", 7}}}, {"method", "m"}}));
  EXPECT_EQ(EncodableValue(Frame({{"id", "7"}, {"method", "m"}})), inner.ToEncodable());

  for (const EncodableValue& name : {EncodableValue(""), EncodableValue(5), EncodableValue()}) {
    EXPECT_TRUE(Message::FromEncodable(Frame({{"method", name}})).IsEmpty());
    EXPECT_EQ("[error] Method name is empty in RPC notification", log_.TakeLine());
    EXPECT_TRUE(Message::FromEncodable(Frame({{"method", name}, {"id", 1.0}})).IsEmpty());
    EXPECT_EQ("[error] Method name is empty in RPC request", log_.TakeLine());
  }
}

TEST_F(MessageTest, HostileTextsGiveTheEmptyMessage) {
  for (const char* text : {"", "=", "not base64!"}) {
    EXPECT_TRUE(Message::FromBase64(text).IsEmpty()) << text;
  }
  test::Bytes deep;
  for (int i = 0; i < 30000; ++i) deep.insert(deep.end(), {0x0c, 0x01});
  for (const auto& bytes : {deep, test::FromHex("0d ff ff ff ff ff")}) {
    EXPECT_TRUE(Message::FromBase64(forge::Buffer(bytes).ToBase64()).IsEmpty());
    EXPECT_NE(std::string::npos, log_.TakeLine().find("RPC message refused: "));
  }
}

}  // namespace
