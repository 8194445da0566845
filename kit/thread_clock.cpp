#include "kit/thread_clock.h"

#include <pthread.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <mutex>
#include <optional>
#include <utility>

#include "forge/fence.h"
#include "kit/timer_queue.h"

namespace tavo::kit {
namespace {

using Steady = std::chrono::steady_clock;

constexpr Millis kRetry{500};  // The pause after the dispatcher has dropped a task.
constexpr Millis kLongestWait = std::chrono::hours(1);

// Blocks all signals of this thread, so that a thread which it starts handles none.
class SignalBlock {
 public:
  SignalBlock() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before_);
  }
  ~SignalBlock() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
  SignalBlock(const SignalBlock&) = delete;
  SignalBlock& operator=(const SignalBlock&) = delete;

 private:
  sigset_t before_;
};

}  // namespace

class ThreadClock::State : public std::enable_shared_from_this<State> {
 public:
  explicit State(std::shared_ptr<forge::IDispatcher> dispatcher)
      : dispatcher_(std::move(dispatcher)) {}

  Millis Now() const { return std::chrono::floor<Millis>(Steady::now() - start_); }

  uint64_t After(Millis delay, std::function<void()> task) {
    // Rounded up: the task must not run before the delay has passed.
    const Millis now = delay > Millis::zero() ? Now() + Millis(1) : Now();
    const Millis due = details::AddDelay(now, delay);
    const uint64_t timer = timers_.Add(due, std::move(task));
    const std::lock_guard lock(mutex_);
    if (due < wakes_at_) {
      wakes_at_ = due;
      wake_.notify_all();
    }
    return timer;
  }

  void Cancel(uint64_t timer) { timers_.Remove(timer); }

  void Close() {
    timers_.Close();
    const std::lock_guard lock(mutex_);
    is_closed_ = true;
    wake_.notify_all();
  }

  // The thread: waits for the next task, and has it run.
  void Work() {
    while (Wait()) {
      if (!dispatcher_) {
        RunDueTasks();
        continue;
      }
      if (TakeDropped()) Pause();
      Post();
    }
  }

 private:
  // Returns when a task is due; false when the clock has ended.
  bool Wait() {
    std::unique_lock lock(mutex_);
    for (;;) {
      if (is_closed_) return false;
      const std::optional<Millis> next = is_posted_ ? std::nullopt : timers_.GetNext();
      const Millis now = Now();
      if (next && *next <= now) return true;
      wakes_at_ = is_posted_ ? Millis::min() : next.value_or(Millis::max());
      wake_.wait_until(lock, start_ + std::min(next.value_or(Millis::max()), now + kLongestWait));
    }
  }

  // The dispatcher's task. A dispatcher may drop it, by an exception or without a word.
  class Posted {
   public:
    explicit Posted(std::shared_ptr<State> state) : state_(std::move(state)) {}
    ~Posted() {
      if (!has_run_) state_->ForgetPosted(true);
    }
    Posted(const Posted&) = delete;
    Posted& operator=(const Posted&) = delete;

    void Run() {
      has_run_ = true;
      state_->RunDueTasks();
      state_->ForgetPosted(false);
    }

   private:
    const std::shared_ptr<State> state_;
    bool has_run_ = false;
  };

  // Has the dispatcher run the tasks that are due. One such task is on its way at a time.
  void Post() {
    std::shared_ptr<Posted> posted;
    forge::Fence("dispatcher of a clock", [&] {
      posted = std::make_shared<Posted>(shared_from_this());
      MarkPosted();
      dispatcher_->Invoke([posted] { posted->Run(); }, 0);
    });
    if (!posted) ForgetPosted(true);
  }

  void MarkPosted() {
    const std::lock_guard lock(mutex_);
    is_posted_ = true;
  }

  void ForgetPosted(bool is_dropped) {
    const std::lock_guard lock(mutex_);
    is_posted_ = false;
    was_dropped_ = is_dropped;
    wake_.notify_all();
  }

  bool TakeDropped() {
    const std::lock_guard lock(mutex_);
    return std::exchange(was_dropped_, false);
  }

  void RunDueTasks() {
    const Millis now = Now();  // A task that adds another one does not keep the loop here.
    while (timers_.RunNext(now)) {
    }
  }

  void Pause() {
    std::unique_lock lock(mutex_);
    wake_.wait_until(lock, Steady::now() + kRetry, [this] { return is_closed_; });
  }

  const std::shared_ptr<forge::IDispatcher> dispatcher_;
  const Steady::time_point start_ = Steady::now();
  details::TimerQueue timers_;

  std::mutex mutex_;
  std::condition_variable wake_;
  Millis wakes_at_ = Millis::max();  // Guarded by mutex_. When the thread looks at the timers.
  bool is_posted_ = false;           // Guarded by mutex_. The dispatcher has a task of the clock.
  bool was_dropped_ = false;         // Guarded by mutex_. The dispatcher has dropped a task.
  bool is_closed_ = false;           // Guarded by mutex_.
};

ThreadClock::ThreadClock(std::shared_ptr<forge::IDispatcher> dispatcher)
    : state_(std::make_shared<State>(std::move(dispatcher))) {
  const SignalBlock block;
  thread_ = std::thread([state = state_] { state->Work(); });
}

ThreadClock::~ThreadClock() {
  Stop();
  if (thread_.joinable()) thread_.detach();  // The thread uses only its own share of the state.
}

void ThreadClock::Stop() {
  state_->Close();
  if (thread_.joinable() && thread_.get_id() != std::this_thread::get_id()) thread_.join();
}

Millis ThreadClock::Now() const { return state_->Now(); }

uint64_t ThreadClock::After(Millis delay, std::function<void()> task) {
  const auto state = state_;  // The task may drop the clock before this call returns.
  return state->After(delay, std::move(task));
}

void ThreadClock::Cancel(uint64_t timer) { state_->Cancel(timer); }

}  // namespace tavo::kit
