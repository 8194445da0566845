// Waiting on conditions, never for a time.
#pragma once

#include <chrono>
#include <functional>
#include <thread>

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
  while (!condition()) {
    if (std::chrono::steady_clock::now() >= end) return false;
    if (QCoreApplication::instance()) {
      // Conditions on other processes change without an event here: wake up all the same.
      QTimer::singleShot(2, [] {});
      QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    } else {
      std::this_thread::yield();
    }
  }
  return true;
}

}  // namespace test
