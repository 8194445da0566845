#include "flrpc/message.h"

#include <gtest/gtest.h>

#include "tests/support/log_capture.h"
#include "tests/support/values.h"

namespace {

using List = cw::EncodableList;
using Map = cw::EncodableMap;
using Value = cw::EncodableValue;
using flrpc::Message;
using ID = Message::ID;
using Type = Message::Type;

// With the member that all messages have.
Map Frame(Map members) {
  members.emplace("jsonrpc", "2.0");
  return members;
}

struct MessageTest : testing::Test {
  test::LogCapture log_;
};

TEST_F(MessageTest, IdentifierIsAText) {
  EXPECT_TRUE(ID(5) == ID("5") && ID("5") == 5 && ID(5) == "5");
  EXPECT_TRUE(ID("05") != 5 && ID("5") != ID("5 ") && ID(std::string_view("5\0", 2)) != "5");
  EXPECT_EQ(ID("-9223372036854775808"), ID(INT64_MIN));
  EXPECT_EQ(std::hash<ID>()(ID(5)), std::hash<ID>()(ID("5")));
  const std::pair<Value, const char*> rows[] = {
      {"text", "text"},
      {"", ""},
      {7, "7"},
      {int64_t{-5000000000}, "-5000000000"},
      {Map{{"id", "inner"}, {"other", 1}}, "inner"},
      {Map{{"id", 3}}, "3"},
  };
  for (const auto& [value, text] : rows) EXPECT_EQ(ID(text), ID::FromEncodable(value));
  for (const Value& value : List{Map{{"id", Map{{"id", 3}}}}, Map(), {}, 1.0, true, List{"text"}}) {
    EXPECT_FALSE(ID::FromEncodable(value)) << testing::PrintToString(value);
  }
}

// Each kind, its map, and its bytes without the detour over the map.
TEST_F(MessageTest, EveryKindReadsBack) {
  for (const Value& extra : List{{}, Map{{"ratio", 0.5}, {"list", std::vector<double>{1, 2}}}}) {
    const std::string name(extra.IsNull() ? 1 : 300, 'x');
    const std::string text(extra.IsNull() ? "" : name);
    Map call{{"method", name}};
    Map error{{"code", -7}, {"message", text}};
    if (!extra.IsNull()) {
      call["params"] = extra;
      error["data"] = extra;
    }
    Map request = call;
    request["id"] = name;
    const std::tuple<Type, Message, Map> rows[] = {
        {Type::kRequest, Message::CreateRequest(ID(name), name, extra), request},
        {Type::kNotification, Message::CreateNotification(name, extra), call},
        {Type::kResponse, Message::CreateResponse(ID(1), extra), {{"id", "1"}, {"result", extra}}},
        {Type::kResponse,
         Message::CreateError(ID(1), -7, text, extra),
         {{"id", "1"}, {"error", error}}},
        {Type::kError, Message::CreateError(Message::Error(-7, text, extra)), {{"error", error}}},
    };
    for (const auto& [type, message, members] : rows) {
      const Value map = Frame(members);
      const std::string bytes = map.Serialize().ToBase64();
      for (const Message& same : {message, Message::FromEncodable(map),
                                  Message::FromEncodable(Value(map)), Message::FromBase64(bytes)}) {
        EXPECT_EQ(type, same.GetType());
        EXPECT_EQ(map, same.ToEncodable());
        EXPECT_EQ(bytes, same.ToBase64());
      }
    }
  }
  EXPECT_EQ("AA==", Message().ToBase64());  // Null.
  EXPECT_EQ("[error] Invalid Json-RPC message", log_.TakeLine());
}

TEST_F(MessageTest, RequestKnowsItsResponse) {
  const auto request = Message::CreateRequest(ID("1"), "m", 5);
  const auto response = Message::CreateResponse(ID(1), {});
  EXPECT_TRUE(request.IsRequest("m") && !request.IsRequest("m ") && !response.IsRequest("m"));
  EXPECT_TRUE(request.IsResponseForThis(response) && !response.IsResponseForThis(request));
  EXPECT_FALSE(request.IsResponseForThis(Message::CreateResponse(ID(2), {})));
}

TEST_F(MessageTest, MalformedFrameIsAParseError) {
  const auto error = [](const Map& members) { return Frame({{"error", members}}); };
  const std::pair<const char*, List> rows[] = {
      {"Emply or invalid RPC message",
       {Value(), List{1}, Map{{"method", "m"}}, Map{{"jsonrpc", "1.0"}, {"method", "m"}},
        Map{{"jsonrpc", 2.0}, {"method", "m"}}}},
      {"Invalid id value in RPC request object",
       {Frame({{"id", 1.0}, {"method", "m"}}), Frame({{"id", {}}, {"method", "m"}})}},
      {"The Response Object MUST contain the error member with a value that is a Object",
       {Frame({{"error", 1}})}},
      {"The Error object does not have a required code field.", {error({{"message", "m"}})}},
      {"The code field contains not integer number", {error({{"code", 1.0}, {"message", "m"}})}},
      {"The code field contains a value out of the supported range",
       {error({{"code", int64_t{4294967296}}, {"message", "m"}}),
        error({{"code", int64_t{INT32_MIN} - 1}, {"message", "m"}})}},
      {"The Error object does not have a required messsage field.", {error({{"code", 1}})}},
      {"The message field contains not string value", {error({{"code", 1}, {"message", 1}})}},
      // Only a request may have its identifier one level deeper.
      {"Invalid id value in RPC response object",
       {Frame({{"id", true}, {"error", Map{{"code", 1}, {"message", "m"}}}}),
        Frame({{"result", 1}}), Frame({{"id", Map{{"id", 7}}}, {"result", 1}})}},
      {"Invalid RPC message", {Frame({{"id", "x"}})}},
  };
  for (const auto& [text, values] : rows) {
    const Value parse_error = Message::CreateError(-32700, text, {}).ToEncodable();
    for (const Value& value : values) {
      EXPECT_EQ(parse_error, Message::FromEncodable(value).ToEncodable());
    }
  }
}

TEST_F(MessageTest, OddButValidFramesAreTaken) {
  const std::pair<Map, Map> rows[] = {
      {{{"method", "m"}, {"error", 1}, {"params", {}}, {"other", 2}}, {{"method", "m"}}},
      {{{"method", "m"}, {"id", Map{{"id", 7}}}}, {{"method", "m"}, {"id", "7"}}},
      {{{"error", Map{{"code", int64_t{INT32_MIN}}, {"message", "m"}}}},
       {{"error", Map{{"code", INT32_MIN}, {"message", "m"}}}}},
  };
  for (const auto& [odd, usual] : rows) {
    EXPECT_EQ(Value(Frame(usual)), Message::FromEncodable(Frame(odd)).ToEncodable());
  }
  for (const Value& name : List{"", 5, {}}) {
    EXPECT_TRUE(Message::FromEncodable(Frame({{"method", name}})).IsEmpty());
    EXPECT_EQ("[error] Method name is empty in RPC notification", log_.TakeLine());
    EXPECT_TRUE(Message::FromEncodable(Frame({{"method", name}, {"id", 1.0}})).IsEmpty());
    EXPECT_EQ("[error] Method name is empty in RPC request", log_.TakeLine());
  }
}

TEST_F(MessageTest, HostileTextIsEmpty) {
  for (const char* text : {"", "=", "not base64!", "AA=="}) {  // The last one is null.
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
