#include "flrpc/receiver.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "tests/support/log_capture.h"

namespace {

using flrpc::Message;
using flrpc::details::ReceiveGuard;
using flrpc::details::Receiver;
using flrpc::details::SendGuard;
using Events = std::vector<std::string>;

Message Note(const std::string& method) { return Message::CreateNotification(method, {}); }

class ReceiverTest : public testing::Test {
 protected:
  static std::string NameOf(const Message& message) {
    return message.GetNotification() ? message.GetNotification()->method : "?";
  }
  Events Take() { return std::exchange(events_, {}); }

  test::LogCapture log_;
  Events events_;
  std::function<bool(const std::string&)> on_receive_;
  Receiver receiver_{[this](Message&& message) { events_.push_back("sent " + NameOf(message)); },
                     [this](const Message& message) {
                       events_.push_back("got " + NameOf(message));
                       return !on_receive_ || on_receive_(NameOf(message));
                     }};
};

TEST_F(ReceiverTest, HoldsBothWaysBackUntilTheQueueIsEnabled) {
  receiver_.Send(Note("1"));
  receiver_.Receive(Note("2"));
  receiver_.Send(Note("3"));
  EXPECT_EQ(Events{}, Take());
  receiver_.SendImmediately(Note("4"));
  receiver_.ReceiveImmediately(Note("5"));
  EXPECT_EQ((Events{"sent 4", "got 5"}), Take());
  receiver_.SetQueueEnabled();
  EXPECT_EQ((Events{"sent 1", "got 2", "sent 3"}), Take());
  receiver_.Send(Note("6"));
  EXPECT_EQ(Events{"sent 6"}, Take());
}

TEST_F(ReceiverTest, WhatAHandlerSendsIsDeliveredAtOnce) {
  on_receive_ = [this](const std::string& name) {
    if (name == "1") receiver_.Send(Note("answer"));
    return true;
  };
  receiver_.Receive(Note("1"));
  receiver_.Receive(Note("2"));
  receiver_.SetQueueEnabled();
  EXPECT_EQ((Events{"got 1", "sent answer", "got 2"}), Take());
}

TEST_F(ReceiverTest, MessagesBehindAHandlerThatThrowsAreDeliveredBeforeTheFirstExceptionLeaves) {
  on_receive_ = [this](const std::string& name) -> bool {
    if (name == "1") receiver_.Send(Note("by 1"));
    if (name != "3") throw std::runtime_error("thrown by " + name);
    return true;
  };
  for (const char* name : {"1", "2", "3"}) receiver_.Receive(Note(name));
  receiver_.Send(Note("4"));
  try {
    receiver_.SetQueueEnabled();
    ADD_FAILURE() << "Nothing was thrown.";
  } catch (const std::runtime_error& error) {
    EXPECT_STREQ("thrown by 1", error.what());
  }
  EXPECT_EQ((Events{"got 1", "sent by 1", "got 2", "got 3", "sent 4"}), Take());
  receiver_.Receive(Note("3"));
  EXPECT_EQ(Events{"got 3"}, Take());
}

TEST_F(ReceiverTest, WhatAPeerMakesUsHoldIsBounded) {
  for (size_t i = 0; i < 1030; ++i) receiver_.Receive(Note(std::to_string(i)));
  EXPECT_EQ(std::vector<std::string>(6, "[error] RPC message dropped: 1024 messages wait already"),
            log_.TakeLines());
  receiver_.Send(Note("ours"));
  receiver_.SetQueueEnabled();
  const Events events = Take();
  ASSERT_EQ(1025u, events.size());
  EXPECT_EQ("got 1023", events[1023]);
  EXPECT_EQ("sent ours", events[1024]);
}

TEST_F(ReceiverTest, WhatAPeerMakesUsHoldIsBoundedInBytesToo) {
  const std::string mebibyte(1 << 20, 'x');
  cw::EncodableMap map;
  for (int i = 0; i < 4096; ++i) map.emplace(i, cw::EncodableValue(std::vector<double>(32)));
  for (int i = 0; i < 16; ++i) {
    receiver_.Receive(Message::CreateNotification("n", mebibyte));
    receiver_.Receive(Message::CreateError(5, mebibyte, cw::EncodableList(1 << 15)));
    receiver_.Receive(Message::CreateResponse(Message::ID(mebibyte), map));
  }
  const Events lines = log_.TakeLines();
  EXPECT_NE(std::string::npos, lines.back().find("more than 16777216 bytes would wait"));
  EXPECT_GT(lines.size(), 3u * 16 - 16);
  EXPECT_LT(lines.size(), 3u * 16 - 4);
  receiver_.Receive(Note("small"));  // Fits still.
  EXPECT_EQ(0u, log_.TakeLines().size());
}

TEST_F(ReceiverTest, NotificationsGoToTheirHandlersUnlessTaken) {
  on_receive_ = [](const std::string& name) { return name == "taken"; };
  for (const char* mark : {"a", "b"}) {
    receiver_.OnNotify("news", [this, mark](const Message::Notification& notification) {
      events_.push_back(mark + notification.method);
      receiver_.OnNotify("late", [](const Message::Notification&) {});  // May register others.
    });
  }
  receiver_.OnNotify("taken", [this](const Message::Notification&) { events_.push_back("no"); });
  for (const char* name : {"news", "taken"}) receiver_.ReceiveImmediately(Note(name));
  EXPECT_EQ((Events{"got news", "anews", "bnews", "got taken"}), Take());
  receiver_.ReceiveImmediately(Note("foo"));
  EXPECT_EQ("[error] Unknown event 'foo()'", log_.TakeLine());
  receiver_.ReceiveImmediately(Message());
  EXPECT_EQ("[warn] [RPC Receiver]: unhandled message", log_.TakeLine());

  Receiver silent({}, {});
  silent.SendImmediately(Note("nobody"));
  silent.ReceiveImmediately(Message::CreateRequest(Message::ID(1), "m", {}));
  EXPECT_EQ("[warn] [RPC Receiver]: unhandled message", log_.TakeLine());
}

TEST_F(ReceiverTest, GuardsDeliverOneMessageWhenTheyEnd) {
  {
    SendGuard empty(receiver_);
    SendGuard send(receiver_);
    ReceiveGuard receive(receiver_);
    send.SendImmediately(Note("1"));
    send.Send(Note("2"));
    const Message borrowed = Note("3");
    receive.ReceiveImmediately(borrowed);
    receive.Receive(Note("4"));
    EXPECT_EQ(Events(2, "[error] The data is already filled."), log_.TakeLines());
    EXPECT_EQ(Events{}, Take());
  }
  EXPECT_EQ((Events{"got 3", "sent 1"}), Take());
  {
    SendGuard send(receiver_);
    ReceiveGuard receive(receiver_);
    send.Send(Note("5"));
    receive.Receive(Note("6"));
  }
  EXPECT_EQ(Events{}, Take());  // In the queue.
  receiver_.SetQueueEnabled();
  EXPECT_EQ((Events{"got 6", "sent 5"}), Take());
}

}  // namespace
