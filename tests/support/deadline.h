// Waiting on conditions, never for a time.
#pragma once

#include <chrono>
#include <functional>
#include <thread>

#include <QAbstractEventDispatcher>
#include <QCoreApplication>
#include <QEventLoop>
#include <QTimer>

#ifndef TAVO_TEST_DEADLINE_FACTOR
#define TAVO_TEST_DEADLINE_FACTOR 1  // Emulators and sanitizers are slow; the build tells.
#endif

namespace test {

constexpr std::chrono::seconds kDeadline{20 * TAVO_TEST_DEADLINE_FACTOR};

// Runs the event loop, where there is one, until the condition holds; false when the deadline
// passes first.
inline bool WaitUntil(const std::function<bool()>& condition,
                      std::chrono::milliseconds deadline = kDeadline) {
  const auto end = std::chrono::steady_clock::now() + deadline;
  bool holds = false;  // The condition is not asked again once it held: it may count or take.
  const auto is_over = [&] {
    holds = holds || condition();
    return holds || std::chrono::steady_clock::now() >= end;
  };
  if (!QCoreApplication::instance()) {
    while (!is_over()) std::this_thread::yield();
  } else if (!is_over()) {
    // A real loop, so that what is to be deleted later is deleted. It looks at each wake-up, and
    // now and then, since conditions on other processes change without an event here.
    QEventLoop loop;
    QTimer tick;
    const auto look = [&] {
      if (is_over()) loop.quit();
    };
    QObject::connect(&tick, &QTimer::timeout, look);
    QObject::connect(QAbstractEventDispatcher::instance(), &QAbstractEventDispatcher::awake, &loop,
                     look);
    tick.start(5);
    loop.exec();
  }
  return holds;
}

}  // namespace test
