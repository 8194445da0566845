// The client side of calls: each has a time limit, can be cancelled and awaited, and has a type.
//
//   struct Size { int32_t width = 0, height = 0; };
//   TAVO_DESCRIBE(Size, width, height)
//
//   auto clock = std::make_shared<kit::ThreadClock>(application);
//   auto caller = kit::Caller::Create(manager->CreateIpcClient("camera"), clock);
//   caller->Run();
//   caller->Call<Size>("measure", Area{"back"}, [](kit::Result<Size> size) {
//     if (size) return Show(size->width, size->height);
//     Report(size.GetFailure().error.message);
//   }, kit::CallOptions().Timeout(5s));
//   progress_ = caller->OnNotify<double>("progress", [](double part) { ShowPart(part); });
//
// A caller asks its peer once, when it is connected, what it knows of this kit. What is called
// before waits for that answer. A peer with a Responder (kit/responder.h) is told of calls that
// have ended here, and may tell progress. Any other peer gets plain requests and notifications.
//
// A client keeps a small handler of each caller that was made of it, so make one caller a client.
//
// Threads:   any. A callback runs on the thread that brings the answer (flrpc/client.h), or where
//            the clock runs its tasks: timeouts, cancelled calls, and all that is known within
//            Call. With CallOptions().Executor it runs there. It never runs within Call, and no
//            lock of the kit is held. Progress functions and handlers of notifications run on the
//            thread that brings them; a transport within the process may do so within a Call.
// Ownership: the caller shares the client and the clock. When it ends, callbacks and handlers are
//            not called any more; one that runs on another thread at that time ends after that. Use
//            an executor, and end the caller there, where this matters: without one a callback that
//            another thread is about to call may even begin shortly after the caller has ended. A
//            callback that waits for its executor is destroyed by that; all others are destroyed at
//            once.
// Errors:    the callback of every call is called exactly once, unless the caller, the executor or
//            a ScopedCall ends first. An exception of a callback is an error line. A call throws
//            nothing but std::bad_alloc and what From throws (kit/values.h); its callback is not
//            called then. An executor that throws drops the callback, with an error line.
#pragma once

#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include "cw/encodable_value.h"
#include "flrpc/client.h"
#include "kit/call_core.h"
#include "kit/call_options.h"
#include "kit/clock.h"
#include "kit/failure.h"
#include "kit/subscription.h"
#include "kit/values.h"

namespace tavo::kit {

template <typename R>
class AwaitableCall;  // kit/await.h

// A call that was made. Copies are the same call. It does not keep the call or its caller alive.
class CallHandle {
 public:
  CallHandle() = default;  // Of no call.
  CallHandle(std::weak_ptr<details::CallCore> core, std::weak_ptr<details::PendingCall> call)
      : core_(std::move(core)), call_(std::move(call)) {}

  // Ends the call with kCancelled, unless it has ended. The callback is called later.
  void Cancel() const;

  // Ends the call, and destroys its callback if that was not called yet.
  void Drop() const;

 private:
  std::weak_ptr<details::CallCore> core_;
  std::weak_ptr<details::PendingCall> call_;
};

// The owner of a call: its end drops the call, so nothing is called after that. A callback that
// runs on another thread at that time ends after that.
class ScopedCall {
 public:
  ScopedCall() = default;
  explicit ScopedCall(CallHandle call) : call_(std::move(call)) {}
  ScopedCall(ScopedCall&& other) noexcept : call_(std::exchange(other.call_, {})) {}
  ScopedCall& operator=(ScopedCall&& other) noexcept;
  ~ScopedCall() { call_.Drop(); }

 private:
  CallHandle call_;
};

class Caller final {
  struct PrivateTag {
    explicit PrivateTag() = default;
  };

 public:
  // Null when there is no client or no clock.
  static std::shared_ptr<Caller> Create(std::shared_ptr<flrpc::IClient> client,
                                        std::shared_ptr<IClock> clock, const Limits& limits = {});

  Caller(std::shared_ptr<flrpc::IClient> client, std::shared_ptr<IClock> clock,
         const Limits& limits, PrivateTag);
  ~Caller();
  Caller(const Caller&) = delete;
  Caller& operator=(const Caller&) = delete;

  // Calls a method. The parameters are of any type that From (kit/values.h) takes, {} is null. The
  // callback is a function of a Result<R>; R is any type that To gives, std::monostate if the
  // method has no result.
  template <typename R, typename Params = cw::EncodableValue, typename Callback>
  CallHandle Call(std::string_view method, const Params& params, Callback&& callback,
                  CallOptions options = {});

  // The same with a future. To wait for it on the thread that brings the answer is a deadlock. When
  // the caller ends first, the result is kCancelled.
  template <typename R, typename Params = cw::EncodableValue>
  std::future<Result<R>> CallFuture(std::string_view method, const Params& params,
                                    CallOptions options = {});

  // The same for a coroutine; include kit/await.h for it.
  template <typename R, typename Params = cw::EncodableValue>
  AwaitableCall<R> CallAwait(std::string_view method, const Params& params,
                             CallOptions options = {});

  // Adds a handler, a function of a T, of the peer's notifications of a method. The end of the
  // subscription removes it. A notification of another type is a warning line.
  template <typename T, typename Handler>
  [[nodiscard]] Subscription OnNotify(std::string_view method, Handler&& handler);

  // Sends a notification. False when it is lost, since the connection is lost or the notification
  // exceeds the limits of a frame, and when Limits::waiting notifications wait already.
  template <typename T = cw::EncodableValue>
  bool Notify(std::string_view method, const T& value);

  // Calls the function once, on the clock, as soon as there is room: when a call would not fail
  // with kOverloaded, and a notification would not be refused.
  void OnWritable(std::function<void()> callback) { core_->OnWritable(std::move(callback)); }

  // Sends "$/ping" now and each interval, once the client is connected; any answer is a sign of
  // life, also an error. Calls the function once, on the clock, when a ping was not answered for
  // `misses` intervals, or when the connection has failed. The watch ends then. It also ends with
  // the caller, and with the next Watch; an interval of zero does only that.
  void Watch(Millis interval, int misses, std::function<void()> on_silent) {
    core_->GetWatch().Start(interval, misses, std::move(on_silent));
  }

  // Connects the client.
  void Run() { client_->Run(); }

  const std::shared_ptr<flrpc::IClient>& GetClient() const { return client_; }

 private:
  template <typename R>
  friend class AwaitableCall;

  const std::shared_ptr<flrpc::IClient> client_;
  const std::shared_ptr<details::CallCore> core_;
};

// ------------------------------------------------------------------------------------------------

namespace details {

// A value that is one already is borrowed, any other is made.
template <typename T>
Argument ToArgument(const T& value) {
  if constexpr (std::is_same_v<T, cw::EncodableValue>) {
    return Argument(&value);
  } else {
    return Argument(From(value));
  }
}

template <typename R, typename Callback>
class TypedCall final : public PendingCall {
 public:
  template <typename Function>
  TypedCall(Function&& callback, CallOptions options)
      : PendingCall(std::move(options)), callback_(std::forward<Function>(callback)) {}

  void SetValue(const cw::EncodableValue& value) override {
    result_.emplace(To<R>(value, "result"));
  }
  void SetFailure(Failure failure) override { result_.emplace(std::move(failure)); }

 private:
  // The callback may own the last share of much: it is destroyed as soon as it has returned.
  void CallBack() override {
    Callback callback = std::move(*callback_);
    callback_.reset();
    callback(*std::move(result_));
  }
  void DropCallback() noexcept override { callback_.reset(); }

  std::optional<Callback> callback_;
  std::optional<Result<R>> result_;
};

// The callback of a future. One that is dropped uncalled tells that, too.
template <typename R>
class Promise {
 public:
  Promise() = default;
  Promise(Promise&& other) noexcept = default;
  ~Promise() {
    if (!promise_) return;
    promise_->set_value(Failure{
        Cause::kCancelled, flrpc::Message::Error(flrpc::kInternalError, "The caller has ended.")});
  }

  std::future<Result<R>> GetFuture() { return promise_->get_future(); }
  void operator()(Result<R> result) {
    std::exchange(promise_, nullptr)->set_value(std::move(result));
  }

 private:
  std::unique_ptr<std::promise<Result<R>>> promise_ = std::make_unique<std::promise<Result<R>>>();
};

}  // namespace details

template <typename R, typename Params, typename Callback>
CallHandle Caller::Call(std::string_view method, const Params& params, Callback&& callback,
                        CallOptions options) {
  using Function = std::decay_t<Callback>;
  static_assert(std::is_invocable_v<Function&, Result<R>>, "The callback takes a Result<R>.");
  const auto core = core_;  // What the client does within this call may drop the caller.
  auto call = std::make_shared<details::TypedCall<R, Function>>(std::forward<Callback>(callback),
                                                                std::move(options));
  core->Start(method, details::ToArgument(params), call);
  return CallHandle(core, call);
}

template <typename R, typename Params>
std::future<Result<R>> Caller::CallFuture(std::string_view method, const Params& params,
                                          CallOptions options) {
  details::Promise<R> promise;
  auto future = promise.GetFuture();
  Call<R>(method, params, std::move(promise), std::move(options));
  return future;
}

template <typename T, typename Handler>
Subscription Caller::OnNotify(std::string_view method, Handler&& handler) {
  return core_->OnNotify(method, [name = "Notification '" + std::string(method) + "'",
                                  function = std::decay_t<Handler>(std::forward<Handler>(handler))](
                                     const cw::EncodableValue& params) mutable {
    auto value = To<T>(params, "params");
    if (!value) return details::ReportBadValue(name, value.GetFailure().error.message);
    function(*std::move(value));
  });
}

template <typename T>
bool Caller::Notify(std::string_view method, const T& value) {
  return core_->Notify(method, details::ToArgument(value));
}

}  // namespace tavo::kit
