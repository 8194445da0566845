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
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include "cw/encodable_value.h"
#include "forge/dispatcher.h"
#include "kit/clock.h"
#include "kit/values.h"

namespace tavo::kit {

namespace details {

// A warning line: what has come is ignored for this reason.
void ReportBadValue(std::string_view what, const std::string& fault);

}  // namespace details

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

  // The same, but the time runs anew from when the request is sent, and does not run while the call
  // waits for room (Limits::in_flight) at a peer that is there.
  CallOptions& TimeoutInFlight(Millis timeout) {
    is_timeout_in_flight_ = true;
    return Timeout(timeout);
  }

  // Each progress of the call starts the time of Timeout anew.
  CallOptions& ProgressRenews(bool renews = true) {
    progress_renews_ = renews;
    return *this;
  }

  // The function is called with each progress, a T, that the peer tells before it answers. Progress
  // of another type is a warning line.
  template <typename T = cw::EncodableValue, typename Function>
  CallOptions& OnProgress(Function&& function) {
    on_progress_ = [typed = std::decay_t<Function>(std::forward<Function>(function))](
                       const cw::EncodableValue& value) mutable {
      auto part = To<T>(value, "value");
      if (!part) return details::ReportBadValue("Progress", part.GetFailure().error.message);
      typed(*std::move(part));
    };
    return *this;
  }

  // The callback and the progress function run through this dispatcher. If it drops its tasks, they
  // are not called.
  CallOptions& Executor(std::shared_ptr<forge::IDispatcher> executor) {
    executor_ = std::move(executor);
    return *this;
  }

  Millis GetTimeout() const { return timeout_; }
  bool IsTimeoutInFlight() const { return is_timeout_in_flight_; }
  bool DoesProgressRenew() const { return progress_renews_; }
  const ProgressFunction& GetProgressFunction() const { return on_progress_; }
  const std::shared_ptr<forge::IDispatcher>& GetExecutor() const { return executor_; }

 private:
  Millis timeout_ = std::chrono::seconds(25);
  bool is_timeout_in_flight_ = false;
  bool progress_renews_ = false;
  ProgressFunction on_progress_;
  std::shared_ptr<forge::IDispatcher> executor_;
};

}  // namespace tavo::kit
