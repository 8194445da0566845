// The three clocks keep one contract.
#include <gtest/gtest.h>

#include <mutex>
#include <thread>

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

enum class Kind { kManual, kThread, kQt };

class ClockTest : public test::LogTest, public testing::WithParamInterface<Kind> {
 protected:
  std::shared_ptr<IClock> Make() {
    if (GetParam() == Kind::kThread) return std::make_shared<ThreadClock>();
    if (GetParam() == Kind::kQt) return std::make_shared<QtClock>();
    const auto manual = std::make_shared<ManualClock>();
    manual_ = manual;
    return manual;
  }
  std::function<void()> Tell(char name) {
    return [this, name] {
      const std::lock_guard lock(mutex_);
      events_ += name;
    };
  }
  // Waits for these events.
  bool Comes(const std::string& events) {
    return test::WaitUntil([&] {
             if (const auto manual = manual_.lock()) manual->Advance(1ms);
             const std::lock_guard lock(mutex_);
             return events_.size() >= events.size();
           }) &&
           events_ == events;
  }

  std::mutex mutex_;
  std::string events_;  // Guarded by mutex_.
  std::weak_ptr<ManualClock> manual_;

 private:
  int argument_count_ = 0;
  QCoreApplication application_{argument_count_, nullptr};
};

TEST_P(ClockTest, TasksRunInTheOrderOfTheirTimes) {
  const auto clock = Make();
  const Millis start = clock->Now();
  clock->After(Millis::max(), Tell('x'));
  clock->After(30ms, Tell('d'));
  clock->Cancel(clock->After(1ms, Tell('x')));
  std::thread([&] {
    clock->After(20ms, [&] { clock->After(-1ms, Tell('c')), Tell('b')(); });
  }).join();
  clock->After(0ms, [&] {
    Tell('a')();
    throw std::runtime_error("no");
  });
  EXPECT_EQ("", events_.substr(0, GetParam() == Kind::kThread ? 0 : 1));
  EXPECT_TRUE(Comes("abcd")) << events_;
  EXPECT_LE(30ms, clock->Now() - start);
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
                         testing::Values(Kind::kManual, Kind::kThread, Kind::kQt));

class Dispatcher final : public forge::IDispatcher {
 public:
  void Invoke(const std::function<void()>& task, uint32_t) override {
    const std::lock_guard lock(mutex_);
    tasks_.push_back(task);
  }
  std::vector<std::function<void()>> Take() {
    const std::lock_guard lock(mutex_);
    return std::exchange(tasks_, {});
  }

 private:
  std::mutex mutex_;
  std::vector<std::function<void()>> tasks_;  // Guarded by mutex_.
};

TEST(ThreadClockTest, DispatcherRunsTheTasksWhileTheClockLives) {
  const auto dispatcher = std::make_shared<Dispatcher>();
  std::vector<std::thread::id> threads;
  const auto run = [&] {
    for (const auto& task : dispatcher->Take()) task();
  };
  const auto note = [&] { threads.push_back(std::this_thread::get_id()); };
  auto clock = std::make_shared<ThreadClock>(dispatcher);
  clock->After(0ms, note);
  clock->After(1ms, note);
  EXPECT_TRUE(test::WaitUntil([&] { return run(), threads.size() == 2; }));
  EXPECT_EQ(std::vector(2, std::this_thread::get_id()), threads);
  clock->After(0ms, note);
  std::vector<std::function<void()>> late;
  EXPECT_TRUE(test::WaitUntil([&] { return late = dispatcher->Take(), !late.empty(); }));
  clock.reset();
  late.front()();
  EXPECT_EQ(2u, threads.size());
}

}  // namespace
