// Calls that a coroutine waits for: the program's part in C++20.
#include "kit/await.h"

#include <gtest/gtest.h>

#include "kit/manual_clock.h"
#include "tests/kit/played_peer.h"

namespace {

using tavo::kit::Caller;
using tavo::kit::Cause;
using tavo::kit::ManualClock;

// A coroutine that starts at once and is destroyed with its owner.
struct Task {
  struct promise_type {
    Task get_return_object() { return {std::coroutine_handle<promise_type>::from_promise(*this)}; }
    std::suspend_never initial_suspend() { return {}; }
    std::suspend_always final_suspend() noexcept { return {}; }
    void return_void() {}
    void unhandled_exception() { ADD_FAILURE(); }
  };
  std::coroutine_handle<promise_type> handle;
};

Task Sum(Caller& caller, int32_t& sum) {
  for (int32_t i = 0; i < 3; ++i) {
    const auto part = co_await caller.CallAwait<int32_t>("typed", i);
    sum += part ? *part : static_cast<int32_t>(part.GetFailure().cause);
  }
}

TEST(AwaitTest, CoroutineGoesOnWithTheResultOrIsDestroyed) {
  test::PlayedPeer peer;
  const auto clock = std::make_shared<ManualClock>();
  const auto caller = Caller::Create(peer.client, clock);
  peer.Connect();
  peer.AnswerFeatures();
  int32_t sum = 0;
  const Task task = Sum(*caller, sum);
  peer.Answer(peer.Pop(), 40);
  EXPECT_EQ(40, sum);
  peer.Refuse(peer.Pop(), 1, "no");
  EXPECT_FALSE(task.handle.done());
  clock->Advance(std::chrono::seconds(25));
  EXPECT_TRUE(task.handle.done());
  EXPECT_EQ(40 + static_cast<int32_t>(Cause::kPeer) + static_cast<int32_t>(Cause::kTimeout), sum);
  task.handle.destroy();

  peer.sent.clear();
  const Task other = Sum(*caller, sum);
  const auto request = peer.Pop();
  other.handle.destroy();
  EXPECT_EQ("$/cancel", peer.Pop().GetNotification()->method);
  peer.Answer(request, 1);
  clock->Advance(std::chrono::seconds(25));
  EXPECT_EQ(41, sum);
}

}  // namespace
