// The interface of a clock: it runs tasks after a delay.
//
// kit/thread_clock.h works in every plug-in, kit/qt/qt_clock.h where a Qt event loop runs, and
// kit/manual_clock.h is moved by a test.
//
// Threads:   any. A clock runs its tasks one at a time, on one thread at a time, and holds no lock
//            meanwhile. A task may call every operation of its clock, and may drop the clock.
// Ownership: a clock owns the tasks that wait. Its destructor destroys them without running them.
// Errors:    an exception of a task is an error line.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>

namespace tavo::kit {

using Millis = std::chrono::milliseconds;

class IClock {
 public:
  virtual ~IClock() = default;

  // The time since some fixed point. It never goes back.
  virtual Millis Now() const = 0;

  // Runs the task once, not before the delay has passed, and never within this call; a delay of
  // zero or less means as soon as possible. Tasks that are due run in the order of their times.
  // Returns the number of the timer, never 0.
  virtual uint64_t After(Millis delay, std::function<void()> task) = 0;

  // Drops the task of this timer. A task that runs already, and a number of no timer, are left
  // alone.
  virtual void Cancel(uint64_t timer) = 0;
};

}  // namespace tavo::kit
