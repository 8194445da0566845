// A clock that stands still until it is moved, for tests.
//
//   const auto clock = std::make_shared<kit::ManualClock>();
//   const auto caller = kit::Caller::Create(client, clock);
//   caller->Call<Size>("measure", params, callback, kit::CallOptions().Timeout(5s));
//   clock->Advance(5s);  // The callback is told that the call has timed out.
//
// Threads:   any. The tasks run within Advance.
// Ownership: that of kit/clock.h.
// Errors:    that of kit/clock.h.
#pragma once

#include <algorithm>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>

#include "kit/clock.h"
#include "kit/timer_queue.h"

namespace tavo::kit {

class ManualClock final : public IClock {
 public:
  ManualClock() = default;
  ~ManualClock() override { state_->timers.Close(); }
  ManualClock(const ManualClock&) = delete;
  ManualClock& operator=(const ManualClock&) = delete;

  // Moves the clock, and runs the tasks that are due, each at its own time. A call while another
  // one runs, as in a task, only tells that one to go farther.
  void Advance(Millis by) {
    const auto state = state_;  // A task may drop this clock.
    {
      const std::lock_guard lock(state->mutex);
      state->target = details::AddDelay(state->target, by);
      if (std::exchange(state->is_moving, true)) return;
    }
    while (Step(*state)) {
    }
  }

  // Whether a task waits.
  bool HasTimers() const { return state_->timers.GetNext().has_value(); }

  Millis Now() const override {
    const std::lock_guard lock(state_->mutex);
    return state_->now;
  }
  uint64_t After(Millis delay, std::function<void()> task) override {
    return state_->timers.Add(details::AddDelay(Now(), delay), std::move(task));
  }
  void Cancel(uint64_t timer) override { state_->timers.Remove(timer); }

 private:
  struct State {
    std::mutex mutex;
    Millis now{0};           // Guarded by mutex.
    Millis target{0};        // Guarded by mutex. Where the clock moves to.
    bool is_moving = false;  // Guarded by mutex.
    details::TimerQueue timers;
  };

  // Moves to the next task and runs it. False when the clock has arrived.
  static bool Step(State& state) {
    Millis now;
    {
      const std::lock_guard lock(state.mutex);
      const std::optional<Millis> next = state.timers.GetNext();
      state.is_moving = next && *next <= state.target;
      state.now = state.is_moving ? std::max(state.now, *next) : state.target;
      if (!state.is_moving) return false;
      now = state.now;
    }
    state.timers.RunNext(now);
    return true;
  }

  const std::shared_ptr<State> state_ = std::make_shared<State>();
};

}  // namespace tavo::kit
