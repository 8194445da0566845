// All clocks keep one contract.
#include <gtest/gtest.h>

#include <mutex>
#include <thread>
#include <vector>

#include <QCoreApplication>

#include "kit/manual_clock.h"
#include "kit/qt/qt_clock.h"
#include "kit/thread_clock.h"
#include "tests/support/deadline.h"
#include "tests/support/log_capture.h"

namespace {

using std::chrono_literals::operator""h;
using std::chrono_literals::operator""ms;
using tavo::kit::IClock;
using tavo::kit::ManualClock;
using tavo::kit::Millis;
using tavo::kit::QtClock;
using tavo::kit::ThreadClock;

enum class Kind { kManual, kThread, kDispatcher, kQt };

// Runs tasks on the thread that calls Run. It does without Qt's events, whose locks the thread
// sanitizer does not see.
class Dispatcher final : public forge::IDispatcher {
 public:
  void Invoke(const std::function<void()>& task, uint32_t) override {
    const std::lock_guard lock(mutex_);
    tasks_.push_back(task);
  }

  void Run() {
    std::vector<std::function<void()>> tasks;
    {
      const std::lock_guard lock(mutex_);
      tasks.swap(tasks_);
    }
    for (const auto& task : tasks) task();
  }

 private:
  std::mutex mutex_;
  std::vector<std::function<void()>> tasks_;  // Guarded by mutex_.
};

class ClockTest : public test::LogTest, public testing::WithParamInterface<Kind> {
 protected:
  std::shared_ptr<IClock> Make() {
    if (GetParam() == Kind::kThread) return std::make_shared<ThreadClock>();
    if (GetParam() == Kind::kDispatcher) {
      return std::make_shared<ThreadClock>(dispatcher_);
    }
    if (GetParam() == Kind::kQt) return std::make_shared<QtClock>();
    const auto manual = std::make_shared<ManualClock>();
    manual_ = manual;
    return manual;
  }
  std::function<void()> Tell(char name) {
    return [this, name] {
      const std::lock_guard lock(mutex_);
      events_ += name;
      EXPECT_EQ(GetParam() != Kind::kThread, std::this_thread::get_id() == main_thread_);
    };
  }
  // Waits for these events.
  bool Comes(const std::string& events) {
    return test::WaitUntil([&] {
             if (const auto manual = manual_.lock()) manual->Advance(1ms);
             dispatcher_->Run();
             const std::lock_guard lock(mutex_);
             return events_.size() >= events.size();
           }) &&
           events_ == events;
  }

  std::mutex mutex_;
  std::string events_;  // Guarded by mutex_.
  std::weak_ptr<ManualClock> manual_;
  const std::shared_ptr<Dispatcher> dispatcher_ = std::make_shared<Dispatcher>();
  const std::thread::id main_thread_ = std::this_thread::get_id();

 private:
  int argument_count_ = 0;
  QCoreApplication application_{argument_count_, nullptr};
};

TEST_P(ClockTest, TasksRunInTheOrderOfTheirTimes) {
  const auto clock = Make();
  const Millis start = clock->Now();
  clock->After(Millis::max(), Tell('x'));
  clock->Cancel(clock->After(100ms, Tell('x')));
  std::thread([&] {
    clock->After(200ms, [&] {
      clock->After(-1ms, Tell('c'));
      clock->After(30ms, Tell('d'));
      Tell('b')();
    });
  }).join();
  clock->After(0ms, [&] {
    Tell('a')();
    throw std::runtime_error("no");
  });
  EXPECT_TRUE(Comes("abcd")) << events_;
  EXPECT_LE(230ms, clock->Now() - start);
  ExpectError("Stray exception in timer: no");
}

TEST_P(ClockTest, TaskMayDropItsClock) {
  auto clock = Make();
  const auto alive = std::make_shared<int>();
  clock->After(1h, [alive] {});
  clock->After(2ms, [alive] {});
  clock->After(1ms, [&, own = std::exchange(clock, nullptr)]() mutable {
    own.reset();
    Tell('a')();
  });
  if (const auto manual = manual_.lock()) manual->Advance(2ms);
  EXPECT_TRUE(Comes("a"));
  EXPECT_TRUE(test::WaitUntil([&] { return alive.use_count() == 1; }));
}

INSTANTIATE_TEST_SUITE_P(Clocks, ClockTest,
                         testing::Values(Kind::kManual, Kind::kThread, Kind::kDispatcher,
                                         Kind::kQt));

}  // namespace
