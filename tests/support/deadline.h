// Waiting on conditions, never for a time.
#pragma once

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QTimer>

#ifndef TAVO_TEST_DEADLINE_FACTOR
#define TAVO_TEST_DEADLINE_FACTOR 1  // Emulators and sanitizers are slow; the build tells.
#endif

namespace test {

constexpr std::chrono::seconds kDeadline{20 * TAVO_TEST_DEADLINE_FACTOR};

// Processes events, where there is an application, until the condition holds; false when the
// deadline passes first. The condition is not asked again once it held: it may count or take.
template <typename Condition>
bool WaitUntil(Condition condition, std::chrono::milliseconds deadline = kDeadline) {
  const QDeadlineTimer end(deadline);
  QTimer tick;  // Conditions on other processes change without an event here.
  if (QCoreApplication::instance()) tick.start(5);
  while (!condition()) {
    if (end.hasExpired()) return false;
    QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
  }
  return true;
}

}  // namespace test
