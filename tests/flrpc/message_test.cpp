#include <gtest/gtest.h>

#include "flrpc/message_text.h"
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
  EXPECT_TRUE(ID(5) == ID("5") && ID("5") == 5 && ID(5) == "5" && ID("05") != 5);
  const std::pair<Value, const char*> rows[] = {
      {"text", "text"},
      {7, "7"},
      {int64_t{-5000000000}, "-5000000000"},
      {Map{{"id", "inner"}, {"other", 1}}, "inner"},
  };
  for (const auto& [value, text] : rows) EXPECT_EQ(ID(text), ID::FromEncodable(value));
  for (const Value& value : List{Map{{"id", Map{{"id", 3}}}}, Map(), {}, 1.0}) {
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
        {Type::kError, Message::CreateError(-7, text, extra), {{"error", error}}},
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

TEST_F(MessageTest, MalformedFrameIsAParseError) {
  const auto error = [](const Map& members) { return Frame({{"error", members}}); };
  const std::pair<const char*, Value> rows[] = {
      {"Emply", {}},
      {"Emply", Map{{"method", "m"}}},
      {"Emply", Map{{"jsonrpc", "1.0"}, {"method", "m"}}},
      {"id value in RPC request", Frame({{"id", 1.0}, {"method", "m"}})},
      {"is a Object", Frame({{"error", 1}})},
      {"required code", error({{"message", "m"}})},
      {"not integer", error({{"code", 1.0}, {"message", "m"}})},
      {"out of", error({{"code", int64_t{4294967296}}, {"message", "m"}})},
      {"required mes", error({{"code", 1}})},
      {"not string", error({{"code", 1}, {"message", 1}})},
      {"id value in RPC response",
       Frame({{"id", true}, {"error", Map{{"code", 1}, {"message", "m"}}}})},
      // Only a request may have its identifier one level deeper.
      {"id value in RPC response", Frame({{"id", Map{{"id", 7}}}, {"result", 1}})},
      {"Invalid RPC message", Frame({{"id", "x"}})},
  };
  for (const auto& [text, value] : rows) {
    const Message message = Message::FromEncodable(value);
    ASSERT_EQ(Type::kError, message.GetType()) << text;
    EXPECT_EQ(-32700, message.GetError()->code);
    EXPECT_NE(std::string::npos, message.GetError()->message.find(text)) << text;
  }
}

TEST_F(MessageTest, OddButValidFramesAreTaken) {
  const std::pair<Map, Map> rows[] = {
      {{{"method", "m"}, {"error", 1}, {"params", {}}, {"other", 2}}, {{"method", "m"}}},
      {{{"method", "m"}, {"id", Map{{"id", 7}}}}, {{"method", "m"}, {"id", "7"}}},
  };
  for (const auto& [odd, usual] : rows) {
    EXPECT_EQ(Value(Frame(usual)), Message::FromEncodable(Frame(odd)).ToEncodable());
  }
  for (const Value& name : List{"", 5}) {
    EXPECT_TRUE(Message::FromEncodable(Frame({{"method", name}})).IsEmpty());
    EXPECT_EQ("[error] Method name is empty in RPC notification", log_.TakeLine());
    EXPECT_TRUE(Message::FromEncodable(Frame({{"method", name}, {"id", 1.0}})).IsEmpty());
    EXPECT_EQ("[error] Method name is empty in RPC request", log_.TakeLine());
  }
}

TEST_F(MessageTest, HostileTextIsEmpty) {
  for (const char* text : {"", "not base64!", "AA=="}) {  // The last one is null.
    EXPECT_TRUE(Message::FromBase64(text).IsEmpty()) << text;
  }
  EXPECT_TRUE(Message::FromBase64("Df//////").IsEmpty());  // A map that says it is huge.
  EXPECT_EQ("[error] RPC message refused: it declares more than it holds", log_.TakeLine());
}

TEST_F(MessageTest, TextIsTheSameWhateverMemoryWasKept) {
  for (const size_t size : {100, 60000, 40000, 300000, 900000, 50, 60000}) {
    const auto message = Message::CreateNotification("m", std::string(size, char('a' + size % 23)));
    const flrpc::details::MessageText text{Message(message)};
    EXPECT_EQ(message.ToEncodable().Serialize().ToBase64(), text.Get());
    EXPECT_EQ(message.ToEncodable(), flrpc::details::FromText(text.Get()).ToEncodable());
  }
}

}  // namespace
