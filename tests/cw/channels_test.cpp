// Method and event channels, and how arguments are read. Messages are texts: \7 and a size begin
// a name, \1 is true, \2 is false.
#include <stdexcept>

#include "cw/event_channel.h"
#include "cw/map_access.h"
#include "tests/support/fake_embedder.h"

namespace {

using cw::EncodableValue;
using ChannelsTest = test::WrapperTest<cw::BinaryMessenger>;

TEST_F(ChannelsTest, CallIsAnsweredOnceWhateverItsHandlerDoes) {
  cw::MethodChannel<> channel(wrapper_.get(), "c");
  channel.SetHandler([&](const auto& call, auto result) {
    Enter(call.GetMethodName(), *call.GetArguments());
    for (int i = 0; i < 2 && call.GetMethodName() == "fail"; ++i) result->Error("e", "m", true);
    if (call.GetMethodName() == "throw") throw std::runtime_error("cause");
  });
  TakeTrace();
  for (const char* message : {"\7\4fail\1", "\7\5throw\1", "?", "\7\4drop\1"}) {
    Deliver("c", message);
  }
  EXPECT_EQ(
      "fail(1) response(1, 7, 1, 101, 7, 1, 109, 1) throw(1) response(0) response(0) "
      "drop(1) response(0)",
      TakeTrace());
  EXPECT_NE("", log_.TakeLine());
  EXPECT_NE(std::string::npos, error_.TakeText().find("Ignoring duplicate result."));
}

// The handler passes its call on, so the answer to the one is the answer to the other.
TEST_F(ChannelsTest, InvokeTellsTheAnswerOnce) {
  const std::pair<std::vector<uint8_t>, std::string> rows[] = {
      {{0, 1}, "response(0, 1)"},
      {{1, 7, 1, 'e', 0, 2}, "response(1, 7, 1, 101, 0, 2)"},
      {{}, "response(0)"},
      {{63}, "response(1, 7, 18, 109, 97,"},  // The code is "malformed-response".
      {{0, 12, 255, 255, 255, 255, 255}, "response(1, 7, 18, 109, 97,"},
  };
  for (const auto& [answer, told] : rows) {
    cw::MethodChannel<> channel(wrapper_.get(), "c");
    channel.SetHandler([&](const auto& call, auto result) {
      channel.Invoke("n", *call.GetArguments(), std::move(result));
    });
    TakeTrace();
    Deliver("c", "\7\1m\1");
    EXPECT_EQ("Send(c, 7, 1, 110, 1)", TakeTrace());
    Reply(answer);
    EXPECT_EQ(told, TakeTrace().substr(0, told.size()));
  }
}

TEST_F(ChannelsTest, StreamIsOpenFromListenToCancel) {
  std::vector<cw::EventSink<>> sinks;
  std::optional<cw::EventChannel<>> channel(std::in_place, wrapper_.get(), "c");
  channel->SetHandler(
      [&](const EncodableValue* argument, const auto& events) {
        sinks.push_back(events);
        const cw::StreamError<> refusal{"e", "m", EncodableValue(true)};
        return argument->Get<bool>() ? std::nullopt : std::optional(refusal);
      },
      [&](const EncodableValue* argument) { Enter("closed", argument != nullptr); });
  // What follows a message, and what the open sinks of all then send: their numbers.
  const auto check = [&](const char* message, const char* trace) {
    TakeTrace();
    Deliver("c", message);
    for (size_t i = 0; i < sinks.size(); ++i) sinks[i].Success(std::to_string(i));
    EXPECT_EQ(trace, TakeTrace().substr(0, 61)) << message;
  };
  check("\7\6listen\2", "response(1, 7, 1, 101, 7, 1, 109, 1)");
  check("\7\6listen\1", "response(0, 0) Send(c, 0, 7, 1, 49)");
  check("\7\6listen\1", "closed(0) response(0, 0) Send(c, 0, 7, 1, 50)");
  check("\7\6cancel\1", "closed(1) response(0, 0)");
  check("\7\6cancel\1", "response(1, 7, 5, 101, 114, 114, 111, 114, 7, 27, 78, 111, 32");
  check("\7\6listen\1", "response(0, 0) Send(c, 0, 7, 1, 51)");
  sinks.back().Error("e");
  for (int i = 0; i < 2; ++i) sinks.back().End();
  EXPECT_EQ("Send(c, 1, 7, 1, 101, 0, 0) Send(c, 0)", TakeTrace());
  check("\7\6listen\1", "closed(0) response(0, 0) Send(c, 0, 7, 1, 52)");
  channel.reset();
  check("\7\6listen\1", "response(0)");
}

TEST(MapAccessTest, IntegerIsReadInBothWidthsIfItFits) {
  const int64_t least = std::numeric_limits<int32_t>::min();
  const EncodableValue map(
      cw::EncodableMap{{"narrow", -7}, {"least", least}, {"less", least - 1}, {"more", -least}});
  EXPECT_EQ(-7, cw::Get<int64_t>(&map, "narrow"));
  EXPECT_EQ(least, cw::Get<int32_t>(&map, "least"));
  EXPECT_EQ(-least, cw::Get<int64_t>(&map, "more"));
  for (const char* none : {"less", "more", "missing"}) {
    EXPECT_EQ(std::nullopt, cw::Get<int32_t>(&map, none));
  }
  EXPECT_EQ(nullptr, cw::Find(cw::Find(&map, "narrow"), "of no map"));
}

}  // namespace
