#include "flrpc/receiver.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "tests/support/log_capture.h"

namespace {

using flrpc::Message;
using flrpc::details::Receiver;
using Lines = std::vector<std::string>;

Message Note(const std::string& method) { return Message::CreateNotification(method, {}); }

class ReceiverTest : public testing::Test {
 protected:
  void Add(const std::string& event) { events_ += "[" + event + "]"; }
  std::string Take() { return std::exchange(events_, {}); }

  test::LogCapture log_;
  std::string events_;
  std::function<bool(const std::string&)> on_receive_;
  Receiver receiver_{
      [this](Message&& message) { Add("sent " + message.GetNotification()->method); },
      [this](const Message& message) {
        const auto* note = message.GetNotification();
        if (note) Add("got " + note->method);
        return note && (!on_receive_ || on_receive_(note->method));
      }};
};

TEST_F(ReceiverTest, HandlerThatThrowsHoldsNothingUp) {
  on_receive_ = [this](const std::string& name) -> bool {
    if (name == "2") throw std::logic_error("not the first");
    if (name != "1") return true;
    receiver_.Send(Note("by 1"));  // Delivered at once.
    throw std::runtime_error("the first");
  };
  for (const char* name : {"1", "2", "3"}) receiver_.Receive(Note(name));
  receiver_.Send(Note("4"));
  EXPECT_EQ("", Take());
  EXPECT_THROW(receiver_.SetQueueEnabled(), std::runtime_error);
  receiver_.Receive(Note("3"));
  EXPECT_EQ("[got 1][sent by 1][got 2][got 3][sent 4][got 3]", Take());
}

TEST_F(ReceiverTest, HeldMessagesAreLimited) {
  for (int i = 1; i <= 1025; ++i) receiver_.Receive(Note(std::to_string(i)));
  EXPECT_EQ("[error] RPC message dropped: 1024 messages wait already", log_.TakeLine());
  receiver_.Send(Note("ours"));
  receiver_.SetQueueEnabled();
  EXPECT_NE(std::string::npos, Take().find("[got 1023][got 1024][sent ours]"));
}

TEST_F(ReceiverTest, HeldBytesAreLimited) {
  const std::string mebibyte(1 << 20, 'x');
  cw::EncodableMap map;
  for (int i = 0; i < 4096; ++i) map[i] = std::vector<double>(32);
  for (int i = 0; i < 16; ++i) {
    receiver_.Receive(Message::CreateNotification("n", mebibyte));
    receiver_.Receive(Message::CreateError(5, mebibyte, cw::EncodableList(1 << 15)));
    receiver_.Receive(Message::CreateResponse(Message::ID(mebibyte), map));
  }
  const Lines lines = log_.TakeLines();
  EXPECT_NE(std::string::npos, lines.back().find("more than 16777216 bytes would wait"));
  EXPECT_GT(lines.size(), 3u * 16 - 16);
  EXPECT_LT(lines.size(), 3u * 16 - 4);
}

TEST_F(ReceiverTest, NotificationsGoToTheirHandlersUnlessTaken) {
  on_receive_ = [](const std::string& name) { return name == "taken"; };
  for (const char* mark : {"a ", "b "}) {
    receiver_.OnNotify("news",
                       [this, mark](const auto& notification) { Add(mark + notification.method); });
  }
  receiver_.OnNotify("taken", [this](const auto&) { Add("not taken"); });
  for (const char* name : {"news", "taken", "foo"}) receiver_.ReceiveImmediately(Note(name));
  EXPECT_EQ("[got news][a news][b news][got taken][got foo]", Take());
  receiver_.ReceiveImmediately(Message());
  const std::string unhandled = "[warn] [RPC Receiver]: unhandled message";
  EXPECT_EQ((Lines{"[error] Unknown event 'foo()'", unhandled}), log_.TakeLines());
}

}  // namespace
