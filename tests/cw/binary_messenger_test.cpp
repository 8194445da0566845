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

TEST_F(BinaryMessengerTest, HandlerGetsTheMessageAndMayAnswerLate) {
  Bytes received;
  BinaryReply late;
  messenger_->SetMessageHandler("c", [&](const uint8_t* data, size_t size, BinaryReply reply) {
    received.assign(data, data + size);
    late = std::move(reply);
  });
  Deliver("c");
  EXPECT_EQ((Bytes{1, 2}), received);
  Deliver("other");  // On their way to nobody: answered with nothing.
  Deliver(nullptr);
  late(received.data(), 1);
  EXPECT_EQ((std::vector<Bytes>{{}, {}, {1}}), responses);
  messenger_->SetMessageHandler("c", nullptr);
  EXPECT_EQ(nullptr, embedder_.message_callback);
}

// Of two messages; the second may be under way when the handler has gone.
TEST_F(BinaryMessengerTest, HandlerMayDoAnythingToItsMessenger) {
  const auto answer = [](const BinaryReply& reply) { reply(nullptr, 0); };
  const struct {
    const char* what;
    std::function<void(const BinaryReply&)> act;
    int calls;
    size_t answers;
    int duplicates;
    size_t lines;
  } rows[] = {
      {"answers", answer, 2, 2, 0, 0},
      {"answers twice", [&](auto& reply) { answer(reply), answer(reply); }, 2, 2, 2, 0},
      {"replaces itself",
       [&](auto& reply) {
         messenger_->SetMessageHandler("c", [&](auto, auto, auto second) { answer(second); });
         answer(reply);
       },
       1, 2, 0, 0},
      {"removes itself",
       [&](auto& reply) { messenger_->SetMessageHandler("c", nullptr), answer(reply); }, 1, 2, 0,
       0},
      {"ends the messenger", [&](auto& reply) { messenger_.reset(), answer(reply), answer(reply); },
       1, 0, 1, 0},
      {"throws", [](auto&) { throw std::runtime_error("cause"); }, 2, 0, 0, 2},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    messenger_ = Create();
    const auto calls = std::make_shared<int>();
    messenger_->SetMessageHandler("c", [&, calls](auto, auto, const BinaryReply& reply) {
      ++*calls;
      const std::shared_ptr<int>& kept = calls;
      row.act(reply);
      EXPECT_LT(0, *kept);  // Still there.
    });
    const auto callback = embedder_.message_callback;
    void* const user_data = embedder_.user_data;
    for (int i = 0; i < 2; ++i) {
      embedder_.message_callback = callback;
      embedder_.user_data = user_data;
      Deliver("c");
    }
    EXPECT_EQ(row.calls, *calls);
    EXPECT_EQ(row.answers, std::exchange(responses, {}).size());
    std::string duplicates;
    for (int i = 0; i < row.duplicates; ++i) duplicates += kDuplicate;
    EXPECT_EQ(duplicates, error_.TakeText());
    EXPECT_EQ(row.lines, log_.TakeLines().size());
    messenger_.reset();
    EXPECT_EQ(1, calls.use_count());
  }
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

TEST_F(BinaryMessengerTest, ReplyIsCalledAtMostOnce) {
  const struct {
    const char* what;
    bool is_accepted;
    std::function<void()> within;
    int replies;
  } rows[] = {
      {"accepted", true, [] {}, 1},
      {"accepted and answered within", true,
       [this] {
         Reply({1, 2});
       },
       1},
      {"refused", false, [] {}, 0},
      {"refused and answered all the same", false,
       [this] {
         Reply({1, 2});
       },
       1},
      {"the messenger ends within", true, [this] { messenger_.reset(); }, 0},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    messenger_ = Create();
    embedder_.answers["Send"] = row.is_accepted;
    embedder_.within["Send"] = row.within;
    const auto answers = std::make_shared<std::vector<Bytes>>();
    messenger_->Send("c", nullptr, 7, [answers](const uint8_t* data, size_t size) {
      answers->emplace_back(data, data + size);
    });
    for (int i = 0; i < 2; ++i) Reply({1, 2});
    EXPECT_EQ(std::vector<Bytes>(static_cast<size_t>(row.replies), {1, 2}), *answers);
    EXPECT_EQ(1, answers.use_count());
  }
}

TEST_F(BinaryMessengerTest, NothingIsCalledAfterTheEnd) {
  const auto other = Create();
  int replies = 0;
  other->Send("c", nullptr, 0, [&](const uint8_t*, size_t) { ++replies; });
  void* const of_other = embedder_.user_data;
  const auto token = std::make_shared<int>();
  std::string told;
  messenger_->OnChannelUpdateSubscribe("c", [&](bool listens) { told += listens ? "+" : "-"; });
  embedder_.Call(true);
  embedder_.Call(false);
  messenger_->Send("c", nullptr, 0, [token](const uint8_t*, size_t) { FAIL(); });
  embedder_.TakeCalls();
  messenger_.reset();
  EXPECT_EQ("", embedder_.TakeTrace());  // The end tells the embedder nothing.
  EXPECT_EQ(1, token.use_count());
  embedder_.Call(true);
  EXPECT_EQ("+-", told);
  Reply({1});
  embedder_.user_data = of_other;
  Reply({1});
  EXPECT_EQ(1, replies);
}

TEST_F(BinaryMessengerTest, ReplyManagerRespondsExactlyOnce) {
  using cw::internal::ReplyManager;
  const Bytes bytes{1, 2, 3};
  const Bytes empty;
  std::string sent;
  const BinaryReply reply = [&](const uint8_t* data, size_t size) {
    sent += (data ? "data " : "null ") + std::to_string(size) + "; ";
  };
  ReplyManager(reply).SendResponseData(nullptr);
  ReplyManager(reply).SendResponseData(&empty);
  {
    ReplyManager twice(reply);
    twice.SendResponseData(&bytes);
    EXPECT_EQ("", error_.TakeText());
    twice.SendResponseData(&bytes);
  }
  EXPECT_EQ("null 0; null 0; data 3; ", sent);
  EXPECT_EQ(
      "Error: Only one of Success, Error, or NotImplemented can be called, and it can be called "
      "exactly once. Ignoring duplicate result.\n",
      error_.TakeText());
  { const ReplyManager unused(reply); }
  EXPECT_EQ("Warning: Failed to respond to a message. This is a memory leak.\n", error_.TakeText());
}

TEST(BinaryMessengerDeathTest, ReplyManagerNeedsAReply) {
  EXPECT_DEATH(cw::internal::ReplyManager(nullptr),
               "ReplyManager::ReplyManager\\(cw::BinaryReply\\).*reply_handler_");
}

}  // namespace
