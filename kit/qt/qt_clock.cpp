#include "kit/qt/qt_clock.h"

#include <algorithm>
#include <chrono>
#include <limits>
#include <optional>
#include <utility>

#include <QBasicTimer>
#include <QCoreApplication>
#include <QEvent>
#include <QObject>
#include <QPointer>
#include <QThread>

#include "kit/timer_queue.h"

namespace tavo::kit {
namespace {

using Steady = std::chrono::steady_clock;

constexpr Millis kLongestWait = std::chrono::hours(1);  // Qt counts in an int of milliseconds.

}  // namespace

// One timer of Qt, for the first of the tasks. The object lives on the thread of the event loop.
class QtClock::Timer final : public QObject {
 public:
  Millis Now() const { return std::chrono::floor<Millis>(Steady::now() - start_); }

  uint64_t After(Millis delay, std::function<void()> task) {
    // Rounded up: the task must not run before the delay has passed.
    const Millis now = delay > Millis::zero() ? Now() + Millis(1) : Now();
    const uint64_t timer = timers_.Add(details::AddDelay(now, delay), std::move(task));
    if (QThread::currentThread() == thread()) {
      Restart();
    } else {
      QCoreApplication::postEvent(this, new QEvent(QEvent::User));  // Restarts the timer there.
    }
    return timer;
  }

  void Cancel(uint64_t timer) { timers_.Remove(timer); }

  void Close() {
    timers_.Close();
    if (QThread::currentThread() == thread() && !is_running_) {
      delete this;
    } else {
      deleteLater();
    }
  }

 private:
  bool event(QEvent* event) override {
    if (event->type() != QEvent::User) return QObject::event(event);
    Restart();
    return true;
  }

  void timerEvent(QTimerEvent*) override {
    const bool was_running = std::exchange(is_running_, true);
    const Millis now = Now();  // A task that adds another one does not keep the loop here.
    const QPointer<QObject> self(this);  // A task may run an event loop that deletes this.
    while (!was_running && timers_.RunNext(now)) {
      if (!self) return;
    }
    is_running_ = was_running;
    Restart();
  }

  void Restart() {
    const std::optional<Millis> next = is_running_ ? std::nullopt : timers_.GetNext();
    if (!next) return timer_.stop();
    const Millis wait = std::clamp(*next - Now(), Millis::zero(), kLongestWait);
    timer_.start(static_cast<int>(wait.count()), Qt::PreciseTimer, this);
  }

  const Steady::time_point start_ = Steady::now();
  details::TimerQueue timers_;
  QBasicTimer timer_;        // Used on the object's thread only.
  bool is_running_ = false;  // Used on the object's thread only. A task runs.
};

QtClock::QtClock() : timer_(new Timer) {}

QtClock::~QtClock() { timer_->Close(); }

Millis QtClock::Now() const { return timer_->Now(); }

uint64_t QtClock::After(Millis delay, std::function<void()> task) {
  return timer_->After(delay, std::move(task));
}

void QtClock::Cancel(uint64_t timer) { timer_->Cancel(timer); }

}  // namespace tavo::kit
