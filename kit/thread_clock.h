// A clock with a thread of its own, for a plug-in that has no event loop at hand.
//
//   auto clock = std::make_shared<kit::ThreadClock>(application);  // Tasks run on the event loop.
//   auto clock = std::make_shared<kit::ThreadClock>();             // Tasks run on the thread.
//
// Threads:   the tasks run through the dispatcher if there is one, otherwise on the clock's thread,
//            which handles no signals. Stop and the destructor end the thread and join it. They
//            therefore wait for a task that runs there: they must not be called while something is
//            held that the task needs, which includes handlers of a client that the task uses. A
//            clock with a dispatcher has no such task. On the clock's own thread they do not wait;
//            the thread ends as soon as its task returns.
//            A caller (kit/caller.h) also sends by its clock, and who sends waits for the handlers
//            of that client. Such a handler must not wait for anything that needs the same clock.
// Ownership: the clock shares the dispatcher. Tasks that the dispatcher still keeps when the clock
//            ends do nothing. Users of a clock may share it while they run a task, so whoever
//            unloads their code calls Stop before.
// Errors:    those of kit/clock.h. The constructor throws std::system_error when no thread can be
//            started. When the dispatcher drops a task, the clock tries again after a while.
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

  // Destroys the tasks that wait, and ends the thread. Only the owner calls it; later calls have no
  // effect.
  void Stop();

  Millis Now() const override;
  uint64_t After(Millis delay, std::function<void()> task) override;
  void Cancel(uint64_t timer) override;

 private:
  class State;

  const std::shared_ptr<State> state_;  // Shared with the thread and with the dispatcher's task.
  std::thread thread_;
};

}  // namespace tavo::kit
