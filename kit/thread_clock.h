// A clock with a thread of its own, for a plug-in that has no event loop at hand.
//
//   auto clock = std::make_shared<kit::ThreadClock>(application);  // Tasks run on the event loop.
//   auto clock = std::make_shared<kit::ThreadClock>();             // Tasks run on the thread.
//
// Threads:   the tasks run through the dispatcher if there is one, otherwise on the clock's thread,
//            which handles no signals. The destructor ends the thread and joins it. It therefore
//            waits for a task that runs there: it must not be called while something is held that
//            the task needs, which includes handlers of a client that the task uses. A clock with a
//            dispatcher has no such task. A clock that is dropped by a task on its own thread
//            detaches the thread, which ends as soon as the task returns.
// Ownership: the clock shares the dispatcher. Tasks that the dispatcher still keeps when the clock
//            ends do nothing.
// Errors:    those of kit/clock.h. The constructor throws std::system_error when no thread can be
//            started. When the dispatcher throws, the clock tries again after a while.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <thread>

#include "forge/dispatcher.h"
#include "kit/clock.h"

namespace tavo::kit {

class ThreadClock final : public IClock {
 public:
  explicit ThreadClock(std::shared_ptr<forge::IDispatcher> dispatcher = nullptr);
  ~ThreadClock() override;
  ThreadClock(const ThreadClock&) = delete;
  ThreadClock& operator=(const ThreadClock&) = delete;

  Millis Now() const override;
  uint64_t After(Millis delay, std::function<void()> task) override;
  void Cancel(uint64_t timer) override;

 private:
  class State;

  const std::shared_ptr<State> state_;  // Shared with the thread and with the dispatcher's task.
  std::thread thread_;
};

}  // namespace tavo::kit
