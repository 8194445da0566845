#include "cw/binary_messenger.h"

#include <stdexcept>

#include "cw/reply_manager.h"
#include "tests/support/fake_embedder.h"
#include "tests/support/test_base.h"

namespace {

using cw::BinaryMessenger;
using cw::BinaryReply;
using Bytes = std::vector<uint8_t>;
using Table = FlutterOstrelMessengerProcTable;

const char kDuplicate[] = "Error: Response can be set only once. Ignoring duplicate response.\n";

// What the embedder was answered.
std::vector<Bytes> responses;

void SendResponse(_FlutterOstrelEngine* engine, _FlutterOstrelResponse* response,
                  const uint8_t* data, size_t size) {
  EXPECT_EQ(test::FakeEmbedder::Get().context.engine, engine);
  EXPECT_EQ(reinterpret_cast<_FlutterOstrelResponse*>(5), response);
  responses.emplace_back(data, data + size);
}

class BinaryMessengerTest : public test::TestBase {
 protected:
  void SetUp() override {
    TestBase::SetUp();
    responses.clear();
    messenger_ = Create();
  }

  std::unique_ptr<BinaryMessenger> Create() {
    return BinaryMessenger::Create(embedder_.GetContext());
  }

  // The embedder delivers a message to whoever was registered last.
  void Deliver(const char* channel, const Bytes& data = {1, 2}) {
    embedder_.message_callback(embedder_.context.engine, channel, data.data(), data.size(),
                               SendResponse, reinterpret_cast<_FlutterOstrelResponse*>(5),
                               embedder_.user_data);
  }

  void Reply(const Bytes& data) {
    embedder_.reply_callback(data.data(), data.size(), embedder_.user_data);
  }

  test::LogCapture log_;
  test::ErrorCapture error_;
  test::FakeEmbedder embedder_;
  std::unique_ptr<BinaryMessenger> messenger_;
};

TEST_F(BinaryMessengerTest, HandlerAnswersAMessageOnce) {
  Bytes received;
  messenger_->SetMessageHandler("c", [&](const uint8_t* data, size_t size, BinaryReply reply) {
    received.assign(data, data + size);
    reply(received.data(), 1);
    reply(received.data(), 2);
  });
  Deliver("c");
  EXPECT_EQ((Bytes{1, 2}), received);
  EXPECT_EQ((std::vector<Bytes>{{1}}), responses);
  EXPECT_EQ(kDuplicate, error_.TakeText());
  Deliver("other");  // On their way to nobody: answered with nothing.
  Deliver(nullptr);
  EXPECT_EQ((std::vector<Bytes>{{1}, {}, {}}), responses);
}

TEST_F(BinaryMessengerTest, HandlerMayReplaceAndRemoveItself) {
  std::string order;
  const auto token = std::make_shared<int>(1);
  messenger_->SetMessageHandler("c", [&, token](const uint8_t*, size_t, BinaryReply reply) {
    messenger_->SetMessageHandler("c", [&](const uint8_t*, size_t, BinaryReply second) {
      messenger_->SetMessageHandler("c", nullptr);
      order += "2";
      second(nullptr, 0);
    });
    order += std::to_string(*token);
    reply(nullptr, 0);
  });
  Deliver("c");
  EXPECT_EQ(1, token.use_count());
  const auto callback = embedder_.message_callback;
  void* const user_data = embedder_.user_data;
  Deliver("c");
  EXPECT_EQ(nullptr, embedder_.message_callback);
  embedder_.message_callback = callback;  // A message that was under way.
  embedder_.user_data = user_data;
  Deliver("c");
  EXPECT_EQ("12", order);
  EXPECT_EQ(3u, responses.size());
}

TEST_F(BinaryMessengerTest, HandlerMayEndTheMessengerAndReplyLate) {
  BinaryReply late;
  messenger_->SetMessageHandler("c",
                                [&](const uint8_t*, size_t, BinaryReply reply) { late = reply; });
  Deliver("c");
  late(nullptr, 0);
  EXPECT_EQ(1u, responses.size());

  bool told = false;
  messenger_->OnChannelUpdateSubscribe("c", [&](bool) { told = true; });
  messenger_->SetMessageHandler("c", [&](const uint8_t*, size_t, BinaryReply reply) {
    messenger_.reset();
    reply(nullptr, 0);
    reply(nullptr, 0);
    late = reply;
  });
  embedder_.TakeCalls();
  Deliver("c");
  Deliver("c");
  late(nullptr, 0);
  EXPECT_EQ(1u, responses.size());
  EXPECT_EQ(std::string(kDuplicate) + kDuplicate, error_.TakeText());
  EXPECT_TRUE(embedder_.TakeCalls().empty());  // The end tells the embedder nothing.
  embedder_.Call(true);
  EXPECT_FALSE(told);
}

// What dies with the messenger may hold guards that use it once more.
TEST_F(BinaryMessengerTest, WhatDiesWithTheMessengerMayUseIt) {
  struct Guard {
    BinaryMessenger* messenger;
    ~Guard() {
      messenger->SetMessageHandler("c", nullptr);
      messenger->SetMessageHandler("c", [](auto...) {});
      messenger->Send("c", nullptr, 0, [](const uint8_t*, size_t) {});
      messenger->OnChannelUpdateUnsubscribe("c", messenger->OnChannelUpdateSubscribe("c", nullptr));
    }
  };
  const auto guard = [this] { return std::make_shared<Guard>(Guard{messenger_.get()}); };
  messenger_->SetMessageHandler("c", [kept = guard()](auto...) {});
  messenger_->Send("c", nullptr, 0, [kept = guard()](const uint8_t*, size_t) {});
  embedder_.TakeCalls();
  messenger_.reset();
  EXPECT_TRUE(embedder_.TakeCalls().empty());
}

TEST_F(BinaryMessengerTest, HandlersKeepTheirStateAndMayThrow) {
  int last = 0;
  messenger_->SetMessageHandler("c", [&last, count = std::make_shared<int>()](auto...) {
    last = ++*count;
    if (last == 2) throw std::runtime_error("cause");
  });
  for (int i = 0; i < 3; ++i) Deliver("c");
  EXPECT_EQ(3, last);
  EXPECT_NE(std::string::npos, log_.TakeLine().find("cause"));
}

TEST_F(BinaryMessengerTest, ReplyIsCalledAtMostOnce) {
  int replies = 0;
  Bytes answer;
  const auto token = std::make_shared<int>();
  const auto send = [&] {
    messenger_->Send("c", answer.data(), 0, [&, token](const uint8_t* data, size_t size) {
      ++replies;
      answer.assign(data, data + size);
    });
  };
  send();
  Reply({1, 2});
  Reply({3});
  EXPECT_EQ(1, replies);
  EXPECT_EQ((Bytes{1, 2}), answer);
  EXPECT_EQ(1, token.use_count());

  embedder_.answers["Send"] = 0;
  send();  // Refused: nothing is kept.
  EXPECT_EQ(1, token.use_count());
  embedder_.within["Send"] = [this] { Reply({}); };
  send();  // Refused, and answered all the same.
  EXPECT_EQ(2, replies);
  EXPECT_EQ(1, token.use_count());

  embedder_.within["Send"] = [this] { messenger_.reset(); };
  send();  // The messenger ends within.
  Reply({});
  EXPECT_EQ(2, replies);
  EXPECT_EQ(1, token.use_count());
}

TEST_F(BinaryMessengerTest, ReplyAfterTheEndDoesNothing) {
  const auto token = std::make_shared<int>();
  const auto other = Create();
  int replies = 0;
  other->Send("c", nullptr, 0, [&](const uint8_t*, size_t) { ++replies; });
  void* const of_other = embedder_.user_data;
  messenger_->Send("c", nullptr, 0, [token](const uint8_t*, size_t) { FAIL(); });
  messenger_.reset();
  EXPECT_EQ(1, token.use_count());
  Reply({1});
  embedder_.user_data = of_other;
  Reply({1});
  EXPECT_EQ(1, replies);
}

TEST_F(BinaryMessengerTest, ChannelUpdatesReachTheSubscriber) {
  std::vector<bool> updates;
  EXPECT_EQ(1u, messenger_->OnChannelUpdateSubscribe(
                    "c", [&](bool listens) { updates.push_back(listens); }));
  embedder_.Call(true);
  embedder_.Call(false);
  EXPECT_EQ((std::vector<bool>{true, false}), updates);
}

TEST_F(BinaryMessengerTest, ReplyManagerRespondsExactlyOnce) {
  using cw::internal::ReplyManager;
  std::vector<std::pair<bool, size_t>> sent;
  const BinaryReply reply = [&](const uint8_t* data, size_t size) {
    sent.emplace_back(data != nullptr, size);
  };
  const Bytes empty;
  const Bytes bytes{1, 2, 3};
  for (const Bytes* data : {static_cast<const Bytes*>(nullptr), &empty, &bytes}) {
    ReplyManager(reply).SendResponseData(data);
  }
  EXPECT_EQ((std::vector<std::pair<bool, size_t>>{{false, 0}, {false, 0}, {true, 3}}), sent);
  EXPECT_EQ("", error_.TakeText());
  {
    ReplyManager twice(reply);
    twice.SendResponseData(&bytes);
    twice.SendResponseData(&bytes);
  }
  EXPECT_EQ(
      "Error: Only one of Success, Error, or NotImplemented can be called, and it can be called "
      "exactly once. Ignoring duplicate result.\n",
      error_.TakeText());
  { const ReplyManager unused(reply); }
  EXPECT_EQ("Warning: Failed to respond to a message. This is a memory leak.\n", error_.TakeText());
  EXPECT_EQ(4u, sent.size());
}

TEST(BinaryMessengerDeathTest, ReplyManagerNeedsAReply) {
  EXPECT_DEATH(cw::internal::ReplyManager(nullptr),
               "ReplyManager::ReplyManager\\(cw::BinaryReply\\).*reply_handler_");
}

}  // namespace
