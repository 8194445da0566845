// The timers of a clock, in the order of their times. Every clock is made of one.
//
// Threads:   any. No lock is held while a task runs or is destroyed.
// Ownership: the queue owns the tasks. A clock shares it with whatever runs the tasks, since a task
//            may drop the clock.
// Errors:    an exception of a task is an error line.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <utility>

#include "kit/clock.h"

namespace tavo::kit::details {

// The time after a delay; the end of time if there is no such time.
constexpr Millis AddDelay(Millis time, Millis delay) {
  if (delay <= Millis::zero()) return time;
  return delay > Millis::max() - time ? Millis::max() : time + delay;
}

class TimerQueue {
 public:
  // Adds a task and returns its number, never 0. A closed queue destroys the task.
  uint64_t Add(Millis due, std::function<void()> task);

  // Destroys the task of this number, if it waits.
  void Remove(uint64_t timer);

  // The time of the first task; empty if there is none.
  std::optional<Millis> GetNext() const;

  // Runs the first task if its time has come. Returns whether there was one.
  bool RunNext(Millis now);

  // Destroys all tasks. None is run any more, except one that runs already.
  void Close();

 private:
  using Key = std::pair<Millis, uint64_t>;  // The time, and the number of the timer.
  using Tasks = std::map<Key, std::function<void()>>;

  mutable std::mutex mutex_;
  Tasks tasks_;             // Guarded by mutex_.
  uint64_t last_ = 0;       // Guarded by mutex_. The last number of a timer.
  bool is_closed_ = false;  // Guarded by mutex_.
};

}  // namespace tavo::kit::details
