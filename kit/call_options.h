// What a call may take, and what a caller may hold.
//
//   caller->Call<Size>("measure", params, callback,
//                      kit::CallOptions().Timeout(5s).ProgressRenews().Executor(application));
//
// Threads:   plain values, no locking.
// Ownership: the options own the function and share the executor.
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <utility>

#include "cw/encodable_value.h"
#include "forge/dispatcher.h"
#include "kit/clock.h"

namespace tavo::kit {

// The limits of a caller. More than in_flight calls wait, in order, and more than waiting calls
// beyond these fail with kOverloaded. Abandoned calls have ended here, but the peer has not
// answered them: the client keeps them until then. When there are too many of them, new calls fail
// with kOverloaded.
struct Limits {
  size_t in_flight = 256;
  size_t waiting = 1024;
  size_t abandoned = 1024;
};

class CallOptions {
 public:
  using ProgressFunction = std::function<void(const cw::EncodableValue&)>;

  // The call fails with kTimeout when its answer has not come by then. It is 25 seconds unless
  // said; Millis::max() is no limit.
  CallOptions& Timeout(Millis timeout) {
    timeout_ = timeout;
    return *this;
  }

  // Each progress of the call starts the time of Timeout anew.
  CallOptions& ProgressRenews(bool renews = true) {
    progress_renews_ = renews;
    return *this;
  }

  // The function is called with each progress that the peer tells before it answers.
  CallOptions& OnProgress(ProgressFunction function) {
    on_progress_ = std::move(function);
    return *this;
  }

  // The callback and the progress function run through this dispatcher. If it drops its tasks, they
  // are not called.
  CallOptions& Executor(std::shared_ptr<forge::IDispatcher> executor) {
    executor_ = std::move(executor);
    return *this;
  }

  Millis GetTimeout() const { return timeout_; }
  bool DoesProgressRenew() const { return progress_renews_; }
  const ProgressFunction& GetProgressFunction() const { return on_progress_; }
  const std::shared_ptr<forge::IDispatcher>& GetExecutor() const { return executor_; }

 private:
  Millis timeout_ = std::chrono::seconds(25);
  bool progress_renews_ = false;
  ProgressFunction on_progress_;
  std::shared_ptr<forge::IDispatcher> executor_;
};

}  // namespace tavo::kit
