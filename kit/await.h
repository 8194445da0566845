// Calls for coroutines, in C++20. Include this file to use Caller::CallAwait.
//
//   Task Show(kit::Caller& caller) {  // Any type of coroutine.
//     kit::Result<Size> size = co_await caller.CallAwait<Size>("measure", Area{"back"});
//     if (size) Print(size->width);
//   }
//
// The call is made by co_await. The coroutine is resumed where the callback of the call would run.
//
// Threads:   a coroutine that waits is destroyed where it would be resumed, otherwise both may
//            happen at once.
// Ownership: to destroy a coroutine that waits cancels its call. When the caller ends first, the
//            coroutine is not resumed: whoever owns it destroys it.
// Errors:    those of Caller::Call.
#pragma once

#include "kit/caller.h"

#if defined(__cpp_impl_coroutine)

#include <coroutine>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace tavo::kit {

// What co_await takes, once.
template <typename R>
class [[nodiscard]] AwaitableCall {
 public:
  AwaitableCall(std::shared_ptr<details::CallCore> core, std::string_view method,
                cw::EncodableValue params, CallOptions options)
      : core_(std::move(core)),
        method_(method),
        params_(std::move(params)),
        options_(std::move(options)) {}

  bool await_ready() const noexcept { return false; }

  // Another thread may resume and destroy the coroutine, and this object with it, as soon as the
  // call has begun. So the call takes along what it needs, and this object is ready before.
  void await_suspend(std::coroutine_handle<> coroutine) {
    const auto resume = [this, coroutine](Result<R> result) {
      result_.emplace(std::move(result));
      coroutine.resume();
    };
    const auto call = std::make_shared<details::TypedCall<R, std::decay_t<decltype(resume)>>>(
        resume, std::move(options_));
    const std::shared_ptr<details::CallCore> core = std::move(core_);
    const std::string method = std::move(method_);
    cw::EncodableValue params = std::move(params_);
    scope_ = ScopedCall(CallHandle(core, call));
    core->Start(method, details::Argument(std::move(params)), call);
  }

  Result<R> await_resume() { return *std::move(result_); }

 private:
  std::shared_ptr<details::CallCore> core_;
  std::string method_;
  cw::EncodableValue params_;
  CallOptions options_;
  std::optional<Result<R>> result_;
  ScopedCall scope_;
};

template <typename R, typename Params>
AwaitableCall<R> Caller::CallAwait(std::string_view method, const Params& params,
                                   CallOptions options) {
  return {core_, method, details::ToArgument(params).Take(), std::move(options)};
}

}  // namespace tavo::kit

#endif  // __cpp_impl_coroutine
