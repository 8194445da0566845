// Random schedules of calls: under a clock that the test moves, step by step against a model of
// what must happen; and on several threads, where every call must end once.
#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <deque>
#include <map>
#include <mutex>
#include <optional>
#include <random>
#include <set>
#include <thread>
#include <vector>

#include "cw/map_access.h"
#include "kit/caller.h"
#include "kit/manual_clock.h"
#include "kit/thread_clock.h"
#include "tests/kit/played_peer.h"
#include "tests/support/deadline.h"
#include "tests/support/log_capture.h"
#include "tests/support/scale.h"

namespace {

using cw::EncodableMap;
using cw::EncodableValue;
using flrpc::Message;
using std::chrono_literals::operator""ms;
using std::chrono_literals::operator""s;
using tavo::kit::Caller;
using tavo::kit::CallHandle;
using tavo::kit::CallOptions;
using tavo::kit::Cause;
using tavo::kit::Limits;
using tavo::kit::ManualClock;
using tavo::kit::Millis;
using tavo::kit::Result;
using tavo::kit::ScopedCall;

// What the caller must do, in terms of the numbers of the calls.
struct Model {
  struct Entry {
    Millis timeout;
    bool is_typed;
    Millis deadline;
  };

  Limits limits;
  bool knows_peer = false;
  bool has_cancel = true;
  bool is_lost = false;
  bool answers_at_once = false;
  Millis now{0};
  std::map<int, Entry> waiting, in_flight;
  std::set<int> abandoned;
  std::map<int, Cause> outcomes;  // A value counts as kPeer.
  std::vector<int> sent, cancelled;

  void Call(int number, Millis timeout, bool is_typed) {
    const bool is_full = waiting.size() + in_flight.size() >= limits.in_flight + limits.waiting;
    if (is_full || abandoned.size() >= limits.abandoned) {
      outcomes[number] = Cause::kOverloaded;
    } else {
      waiting[number] = {timeout, is_typed, now + timeout};
    }
  }
  void SendWaiting() {
    while (knows_peer && !waiting.empty() && in_flight.size() < limits.in_flight) {
      const auto first = waiting.extract(waiting.begin());
      if (is_lost) {
        outcomes[first.key()] = Cause::kDisconnected;
        continue;
      }
      sent.push_back(first.key());
      in_flight[first.key()] = first.mapped();
      if (answers_at_once) Answer(first.key());
    }
  }
  void Answer(int number) {
    abandoned.erase(number);
    if (in_flight.erase(number) > 0) outcomes[number] = Cause::kPeer;
  }
  void End(int number, std::optional<Cause> cause) {
    const auto flying = in_flight.find(number);
    if (flying == in_flight.end() && waiting.count(number) == 0) return;
    if (flying != in_flight.end()) {
      abandoned.insert(number);
      if (flying->second.is_typed && has_cancel) cancelled.push_back(number);
    }
    waiting.erase(number);
    in_flight.erase(number);
    if (cause) outcomes[number] = *cause;
  }
  void Tick() {
    ++now;
    std::set<std::pair<Millis, int>> due;
    for (const auto* calls : {&waiting, &in_flight}) {
      for (const auto& [number, call] : *calls) {
        if (call.deadline <= now) due.emplace(call.deadline, number);
      }
    }
    for (const auto& call : due) End(call.second, Cause::kTimeout);
  }
  void Lose() {
    has_cancel = has_cancel && knows_peer;
    is_lost = knows_peer = true;
    for (const auto& call : std::exchange(in_flight, {})) {
      outcomes[call.first] = Cause::kDisconnected;
    }
    abandoned.clear();
  }
};

class Schedule {
 public:
  explicit Schedule(uint32_t seed) : random_(seed) {
    model_.limits = {1 + Draw(3), Draw(4), 1 + Draw(4)};
    model_.has_cancel = Draw(3) > 0;
    model_.answers_at_once = Draw(4) == 0;
    caller_ = Caller::Create(peer_.client, clock_, model_.limits);
    if (Draw(4) > 0) peer_.Connect();
    peer_.on_send = [this](const Message& message) {
      const auto* request = message.GetRequest();
      if (request && request->method != "$/features" && model_.answers_at_once) {
        peer_.Answer(message, 1);
      }
    };
  }

  void Run() {
    for (int step = 0; step < 60 && !testing::Test::HasFailure(); ++step) {
      TakeSent();
      Step();
      model_.SendWaiting();
      clock_->Advance(0ms);
      TakeSent();
      EXPECT_EQ(model_.outcomes, outcomes_);
      EXPECT_EQ(model_.sent, sent_);
      EXPECT_EQ(model_.cancelled, cancelled_);
    }
    End();
    EXPECT_EQ(1, alive_.use_count()) << "A callback is left.";
    EXPECT_FALSE(clock_->HasTimers());
    clock_->Advance(1s);
    EXPECT_EQ(model_.outcomes, outcomes_);
  }

 private:
  uint32_t Draw(size_t count) { return static_cast<uint32_t>(random_() % count); }

  template <typename Entries>
  auto Choose(Entries& entries) {
    return std::next(entries.begin(), Draw(entries.size()));
  }

  void Step() {
    const uint32_t step = Draw(20);
    if (step < 5) return Answer();
    if (step < 8) return Advance(step == 7 ? 8 : 1);
    if (step == 8) return TellFeatures();
    if (step == 9 && Draw(6) == 0) return Lose();
    if (!caller_) return;
    if (step == 10 && Draw(12) == 0) return End();
    if (step == 11) return Progress();
    if (step == 12) return EndCall(Cause::kCancelled);
    if (step == 13) return EndCall({});
    Call();
  }

  void Call() {
    const int number = ++last_;
    const Millis timeout(1 + Draw(20));
    const bool is_typed = Draw(2) == 0;
    model_.Call(number, timeout, is_typed);
    is_within_call_ = true;
    calls_[number] = caller_->Call<int32_t>(
        is_typed ? "typed" : "plain", number,
        [this, number, alive = alive_](const Result<int32_t>& result) {
          EXPECT_FALSE(is_within_call_) << "A callback has come within Call.";
          EXPECT_EQ(0u, outcomes_.count(number)) << "A callback is called twice.";
          outcomes_[number] = result ? Cause::kPeer : result.GetFailure().cause;
        },
        CallOptions().Timeout(timeout).ProgressRenews());
    is_within_call_ = false;
  }
  // Also late and repeated answers.
  void Answer() {
    if (requests_.empty()) return;
    const auto chosen = Choose(requests_);
    const auto [number, request] = *chosen;
    if (Draw(4) > 0) requests_.erase(chosen);
    if (caller_) model_.Answer(number);
    Draw(2) == 0 ? peer_.Answer(request, 1) : peer_.Refuse(request, -32603, "no");
  }
  void Advance(uint32_t steps) {
    for (uint32_t i = 0; i < steps; ++i) {
      model_.Tick();
      model_.SendWaiting();
      clock_->Advance(1ms);
      TakeSent();
    }
  }
  void EndCall(std::optional<Cause> cause) {
    if (calls_.empty()) return;
    const auto& [number, call] = *Choose(calls_);
    model_.End(number, cause);
    if (cause) return call.Cancel();
    const ScopedCall scope(call);
  }
  void Progress() {
    if (tokens_.empty()) return;
    const auto& [token, number] = *Choose(tokens_);
    const auto call = model_.in_flight.find(number);
    if (call != model_.in_flight.end()) call->second.deadline = model_.now + call->second.timeout;
    peer_.Notify("$/progress", EncodableMap{{"$call", token}});
  }
  void TellFeatures() {
    if (!peer_.client->IsConnected() && !model_.is_lost) peer_.Connect();
    TakeSent();
    if (!features_ || model_.is_lost) return;
    model_.knows_peer = true;
    peer_.sent.push_front(*std::exchange(features_, {}));
    peer_.AnswerFeatures(!model_.has_cancel);
  }
  void Lose() {
    if (!model_.is_lost) model_.Lose();
    peer_.client->NotifyDisconnected({});
  }
  void End() {
    caller_.reset();
    model_.waiting.clear();
    model_.in_flight.clear();
  }

  // Reads what the peer has received.
  void TakeSent() {
    while (!peer_.sent.empty()) {
      const Message message = peer_.Pop();
      if (const auto* news = message.GetNotification()) {
        cancelled_.push_back(tokens_.at(*cw::Get<int64_t>(&news->params, "$call")));
      } else if (message.IsRequest("$/features")) {
        features_ = message;
      } else {
        const EncodableValue& params = message.GetRequest()->params;
        const auto* const wrapped = cw::Find(&params, "$params");
        const int number = (wrapped ? *wrapped : params).Get<int32_t>();
        if (wrapped) tokens_[*cw::Get<int64_t>(&params, "$call")] = number;
        requests_.emplace(number, message);
        sent_.push_back(number);
      }
    }
  }

  std::mt19937 random_;
  Model model_;
  test::PlayedPeer peer_;
  std::shared_ptr<ManualClock> clock_ = std::make_shared<ManualClock>();
  std::shared_ptr<Caller> caller_;
  std::map<int, CallHandle> calls_;
  int last_ = 0;
  bool is_within_call_ = false;
  const std::shared_ptr<int> alive_ = std::make_shared<int>();

  // What has happened.
  std::map<int, Cause> outcomes_;
  std::vector<int> sent_, cancelled_;
  std::optional<Message> features_;
  std::map<int, Message> requests_;  // That the peer may answer.
  std::map<int64_t, int> tokens_;
};

TEST(CallModelTest, RandomSchedulesDoWhatTheModelDoes) {
  test::LogCapture log;  // The client complains of repeated answers.
  const auto count = static_cast<uint32_t>(3000 * test::GetScale());
  for (uint32_t i = 0; i < count && !testing::Test::HasFailure(); ++i) {
    SCOPED_TRACE(test::GetSeed() + i);
    Schedule(test::GetSeed() + i).Run();
    log.TakeLines();
  }
}

// The peer's thread: it answers at once, late, twice or never.
class BusyPeer {
 public:
  std::shared_ptr<flrpc::IOwnedClient> client =
      flrpc::IOwnedClient::Create([this](Message&& message) { Push(std::move(message)); });

  BusyPeer() : thread_([this] { Work(); }) {
    client->Run();
    client->NotifyStarted({});
  }
  ~BusyPeer() {
    Push({});
    thread_.join();
  }

 private:
  void Push(Message&& message) {
    const std::lock_guard lock(mutex_);
    queue_.push_back(std::move(message));
    wake_.notify_one();
  }
  Message Pop() {
    std::unique_lock lock(mutex_);
    wake_.wait(lock, [this] { return !queue_.empty(); });
    Message message = std::move(queue_.front());
    queue_.pop_front();
    return message;
  }
  void Work() {
    std::mt19937 random(test::GetSeed());
    std::vector<Message> late;
    for (Message message = Pop(); !message.IsEmpty(); message = Pop()) {
      if (!message.GetRequest()) continue;
      const bool is_call = message.IsRequest("work");
      if (is_call && random() % 4 == 0) {
        if (random() % 2 == 0) late.push_back(message);
        continue;
      }
      Answer(message);
      if (is_call && random() % 8 == 0) Answer(message);
      if (random() % 8 != 0) continue;
      for (const Message& request : std::exchange(late, {})) Answer(request);
    }
  }
  void Answer(const Message& request) {
    client->ReceiveMessage(Message::CreateResponse(request.GetRequest()->id, 1));
  }

  std::mutex mutex_;
  std::condition_variable wake_;
  std::deque<Message> queue_;
  std::thread thread_;
};

TEST(CallModelTest, EveryCallOfSeveralThreadsEndsOnce) {
  test::LogCapture log;
  constexpr size_t kThreads = 3;  // And the peer's, and the clock's.
  const auto calls_of_a_thread = static_cast<size_t>(400 * test::GetScale());
  const auto alive = std::make_shared<int>();
  std::vector<std::atomic<int>> outcomes(kThreads * calls_of_a_thread);
  std::atomic<size_t> dropped{0};
  {
    BusyPeer peer;
    auto caller = Caller::Create(peer.client, std::make_shared<tavo::kit::ThreadClock>(),
                                 Limits{8, outcomes.size(), outcomes.size()});
    const auto work = [&](size_t first) {
      std::mt19937 random(static_cast<uint32_t>(first));
      for (size_t i = first; i < first + calls_of_a_thread; ++i) {
        const auto tell = [&outcomes, i, alive](const auto&) { ++outcomes[i]; };
        const auto options = CallOptions().Timeout(Millis(1 + random() % 20));
        const CallHandle call = caller->Call<int32_t>("work", 1, tell, options);
        if (random() % 8 == 0) call.Cancel();
        if (random() % 8 == 0) {
          call.Drop();
          if (outcomes[i] == 0) ++outcomes[i], ++dropped;
        }
      }
    };
    std::vector<std::thread> threads;
    for (size_t i = 0; i < kThreads; ++i) threads.emplace_back(work, i * calls_of_a_thread);
    for (std::thread& thread : threads) thread.join();
    EXPECT_TRUE(test::WaitUntil([&] { return alive.use_count() == 1; }));
    for (int i = 0; i < 20; ++i) caller->Call<int32_t>("work", 1, [alive](const auto&) {});
    caller.reset();
  }
  EXPECT_EQ(1, alive.use_count());
  for (const auto& outcome : outcomes) EXPECT_EQ(1, outcome);
  log.TakeLines();
}

}  // namespace
