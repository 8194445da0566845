// A caller over a real client, whose peer is played by the test, under a clock that the test moves.
#include "kit/caller.h"

#include <gtest/gtest.h>

#include "cw/admission.h"
#include "cw/map_access.h"
#include "kit/manual_clock.h"
#include "tests/kit/played_peer.h"
#include "tests/support/log_capture.h"

namespace {

using cw::EncodableList;
using cw::EncodableMap;
using cw::EncodableValue;
using flrpc::Message;
using std::chrono_literals::operator""ms;
using std::chrono_literals::operator""s;
using tavo::kit::Caller;
using tavo::kit::CallHandle;
using tavo::kit::CallOptions;
using tavo::kit::Limits;
using tavo::kit::ManualClock;
using tavo::kit::Millis;
using tavo::kit::Result;
using tavo::kit::ScopedCall;

using test::PlayedPeer;

std::string Show(const Result<int32_t>& result) {
  if (result) return std::to_string(*result);
  const auto& [cause, error] = result.GetFailure();
  const char* const names[] = {"peer",       "timeout",   "cancelled", "disconnected",
                               "overloaded", "too large", "bad value"};
  return names[static_cast<int>(cause)] + (" " + std::to_string(error.code) + " ") + error.message;
}

class CallerTest : public testing::Test {
 protected:
  // Callbacks and handlers write down what they are told.
  auto Tell(std::string who = "") {
    return [this, who](const Result<int32_t>& result) { Note(who + Show(result)); };
  }
  void Note(const std::string& event) { events_ += "[" + event + "]"; }
  std::string TakeEvents() {
    clock_->Advance(0ms);
    return std::exchange(events_, {});
  }
  CallHandle Call(const EncodableValue& params = {}, CallOptions options = {}) {
    return caller_->Call<int32_t>("typed", params, Tell(), std::move(options));
  }
  void Start(bool is_old = false) {
    peer_.Connect();
    peer_.AnswerFeatures(is_old);
  }

  test::LogCapture log_;
  std::string events_;
  PlayedPeer peer_;
  std::shared_ptr<ManualClock> clock_ = std::make_shared<ManualClock>();
  std::shared_ptr<Caller> caller_ = Caller::Create(peer_.client, clock_);
};

TEST_F(CallerTest, LocalCausesNeverPoseAsThePeer) {
  Start(true);
  EncodableValue deep;
  for (int i = 0; i < cw::kDeepestNesting; ++i) {
    EncodableList list;
    list.push_back(std::move(deep));
    deep = std::move(list);
  }
  const struct {
    const char* expected;
    std::function<void()> act;
  } rows[] = {
      {"[7]", [&] { Call(), peer_.Answer(peer_.Pop(), int64_t{7}); }},
      {"[bad value -32603 result: an integer is expected, not a text]",
       [&] { Call(), peer_.Answer(peer_.Pop(), "seven"); }},
      {"[peer -32603 Unknown runtime error]",
       [&] { Call(), peer_.Refuse(peer_.Pop(), -32603, "Unknown runtime error"); }},
      {"[peer -32603 The message cannot be sent: no]",
       [&] {
         peer_.on_send = [&](const Message& request) {
           peer_.Refuse(request, -32603, "The message cannot be sent: no");
         };
         Call();
         EXPECT_EQ("", events_) << "A callback has come within Call.";
         peer_.on_send = nullptr;
         peer_.Pop();
       }},
      {"[too large -32603 The message cannot be sent: it nests lists and maps more than 1024 "
       "levels deep]",
       [&] { Call(deep); }},
      {"[timeout -32603 The peer has not answered in time.]",
       [&] { Call(), clock_->Advance(25s), peer_.Answer(peer_.Pop(), 1); }},
      {"[cancelled -32603 The call was cancelled.]",
       [&] { Call().Cancel(), peer_.Answer(peer_.Pop(), 1); }},
      {"[disconnected -32603 The request cannot be sent: the transport is down]",
       [&] { peer_.is_down = true, Call(), peer_.is_down = false; }},
      {"[disconnected -32603 gone]",
       [&] { Call(), peer_.client->NotifyDisconnected(Message::Error(12, "gone")); }},
      {"[disconnected -32603 gone]", [&] { Call(); }},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.expected);
    row.act();
    EXPECT_EQ(row.expected, TakeEvents());
  }
  EXPECT_FALSE(caller_->Notify("seen", EncodableValue(1)));
}

// What is made before the peer has told its features waits in order. Notifications do not wait for
// calls that wait for room.
TEST_F(CallerTest, MessagesWaitForTheFeatures) {
  caller_ = Caller::Create(peer_.client, clock_, Limits{1, 2, 2});
  EXPECT_TRUE(caller_->Notify("first", 1));
  Call(2), Call(3);
  EXPECT_TRUE(caller_->Notify("fourth", 4));
  EXPECT_FALSE(caller_->Notify("refused", 4));
  const CallHandle last = Call(5);
  Call(6);
  EXPECT_EQ("[overloaded -32603 Too many calls are open.]", TakeEvents());
  caller_->OnWritable([&] { Note("writable"); });
  EXPECT_EQ("", TakeEvents());
  peer_.Connect();
  peer_.AnswerFeatures();
  ASSERT_EQ(3u, peer_.sent.size());
  EXPECT_EQ("first", peer_.Pop().GetNotification()->method);
  const Message wrapped = peer_.Pop();
  EXPECT_EQ(EncodableValue(2), *cw::Find(&wrapped.GetRequest()->params, "$params"));
  EXPECT_EQ("fourth", peer_.Pop().GetNotification()->method);
  EXPECT_EQ("", TakeEvents());
  peer_.Answer(wrapped, 2);
  last.Cancel();
  EXPECT_EQ("[2][cancelled -32603 The call was cancelled.][writable]", TakeEvents());
  EXPECT_EQ(1u, peer_.sent.size()) << "A call that was not sent is not cancelled at the peer.";
}

TEST_F(CallerTest, ProgressRenewsTheTimeAndGarbageDoesNot) {
  Start();
  Call({}, CallOptions().Timeout(10ms).ProgressRenews().OnProgress<double>(
               [&](double part) { Note(std::to_string(part).substr(0, 3)); }));
  const Message request = peer_.Pop();
  const EncodableValue token = *cw::Find(&request.GetRequest()->params, "$call");
  clock_->Advance(9ms);
  peer_.Notify("$/progress", EncodableMap{{"$call", token}, {"value", 0.5}});
  for (const EncodableValue& bad :
       {EncodableValue(), token, EncodableValue(EncodableMap{{"$call", 0.5}}),
        EncodableValue(EncodableMap{{"$call", int64_t{-1}}}),
        EncodableValue(EncodableMap{{"$call", token}})}) {
    peer_.Notify("$/progress", bad);
  }
  clock_->Advance(9ms);
  EXPECT_EQ("[0.5]", TakeEvents());
  EXPECT_EQ("[warn] Progress ignored: value: a double is expected, not null", log_.TakeLine());
  clock_->Advance(1ms);
  EXPECT_EQ("[timeout -32603 The peer has not answered in time.]", TakeEvents());
  EXPECT_EQ(token, *cw::Find(&peer_.Pop().GetNotification()->params, "$call"));
}

// The time of the second call begins when the first has ended, but at a peer that never comes.
TEST_F(CallerTest, TimeInFlightStandsStillWhileTheCallWaits) {
  const std::string timeout = "[timeout -32603 The peer has not answered in time.]";
  caller_ = Caller::Create(peer_.client, clock_, Limits{1, 8, 8});
  const auto call_two = [this] {
    for (int i = 0; i < 2; ++i) Call(i, CallOptions().TimeoutInFlight(10ms));
  };
  call_two();
  clock_->Advance(10ms);
  EXPECT_EQ(timeout + timeout, TakeEvents());
  call_two();
  clock_->Advance(9ms);
  Start();
  call_two();
  for (int i = 0; i < 4; ++i) {
    clock_->Advance(9ms);
    EXPECT_EQ("", TakeEvents());
    clock_->Advance(1ms);
    EXPECT_EQ(timeout, TakeEvents());
  }
}

TEST_F(CallerTest, SubscriptionsAndScopesEndTheirCallbacks) {
  Start();
  auto first = caller_->OnNotify<int32_t>("news", [&](int32_t) { Note("first"); });
  tavo::kit::Subscription second;
  auto both = caller_->OnNotify<int32_t>("news", [&](int32_t) { Note("both"), second.End(); });
  second = caller_->OnNotify<int32_t>("news", [&](int32_t) { Note("second"); });
  peer_.Notify("news", 1);
  first.End();
  peer_.Notify("news", 1);
  peer_.Notify("news", "text");
  EXPECT_EQ("[first][both][both]", TakeEvents());
  EXPECT_EQ("[warn] Notification 'news' ignored: params: an integer is expected, not a text",
            log_.TakeLine());
  {
    ScopedCall scope(Call());
    scope = ScopedCall(Call());
    EXPECT_EQ(3u, peer_.sent.size()) << "The first call is cancelled at the peer.";
  }
  EXPECT_EQ(4u, peer_.sent.size());
  auto future = caller_->CallFuture<int32_t>("typed", 1);
  auto lost = caller_->CallFuture<int32_t>("typed", 1);
  peer_.Answer(peer_.sent[4], 8);
  EXPECT_EQ("8", Show(future.get()));
  Call();
  caller_.reset();
  EXPECT_EQ("cancelled -32603 The caller has ended.", Show(lost.get()));
  peer_.Answer(peer_.sent.back(), 1);
  EXPECT_EQ("", TakeEvents());
  EXPECT_FALSE(clock_->HasTimers());
}

TEST_F(CallerTest, CallbackMayDropEverything) {
  Start();
  caller_->Call<int32_t>(
      "plain", 1, [&](const auto&) { caller_.reset(), clock_.reset(); },
      CallOptions().Timeout(1ms));
  Call();
  ManualClock& clock = *clock_;
  clock.Advance(25s);
  EXPECT_EQ(nullptr, clock_);
  EXPECT_EQ("", events_);
}

class Executor final : public forge::IDispatcher {
 public:
  void Invoke(const std::function<void()>& task, uint32_t) override { tasks.push_back(task); }
  std::vector<std::function<void()>> tasks;
};

TEST_F(CallerTest, ExecutorRunsTheCallbackOrNobodyDoes) {
  Start();
  const auto executor = std::make_shared<Executor>();
  const auto options = CallOptions().Executor(executor);
  std::vector<CallHandle> calls;
  for (int i = 0; i < 3; ++i) calls.push_back(Call({}, options));
  for (int i = 0; i < 3; ++i) peer_.Answer(peer_.sent[static_cast<size_t>(i)], i);
  EXPECT_EQ("", TakeEvents());
  executor->tasks[0]();
  calls[1].Drop();
  executor->tasks[1]();
  caller_.reset();
  executor->tasks[2]();
  EXPECT_EQ("[0]", TakeEvents());
}

TEST_F(CallerTest, WatchTellsOfASilentPeerOnce) {
  caller_->Watch(2s, 2, [&] { Note("silent"); });
  clock_->Advance(60s);
  EXPECT_EQ("", TakeEvents()) << "The client is not connected.";
  Start(true);
  clock_->Advance(2s);
  peer_.Refuse(peer_.Pop(), -32601, "Unknown method '$/ping()'");
  clock_->Advance(5s);
  EXPECT_EQ("", TakeEvents());
  EXPECT_TRUE(peer_.Pop().IsRequest("$/ping"));
  clock_->Advance(1s);
  EXPECT_EQ("[silent]", TakeEvents());
  caller_->Watch(2s, 2, [&] { Note("lost"); });
  peer_.client->NotifyDisconnected({});
  clock_->Advance(60s);
  EXPECT_EQ("[lost]", TakeEvents());
  EXPECT_FALSE(clock_->HasTimers());
}

}  // namespace
