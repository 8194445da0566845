// A clock over the Qt event loop of the thread that makes it.
//
// Threads:   the tasks run on the thread that has made the clock, while its event loop runs. All
//            operations, and the destructor, may be called from any thread.
// Ownership: that of kit/clock.h. The clock does not keep the event loop running.
// Errors:    that of kit/clock.h.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "kit/clock.h"

namespace tavo::kit {

class QtClock final : public IClock {
 public:
  QtClock();
  ~QtClock() override;
  QtClock(const QtClock&) = delete;
  QtClock& operator=(const QtClock&) = delete;

  Millis Now() const override;
  uint64_t After(Millis delay, std::function<void()> task) override;
  void Cancel(uint64_t timer) override;

 private:
  class Timer;

  // Lives on the thread of the event loop, which deletes it when that must not be done here.
  Timer* const timer_;
};

}  // namespace tavo::kit
