// The server side of calls: typed handlers, whose requests are answered at once or later, from any
// thread, and may tell progress and be cancelled.
//
//   struct Area { std::string name; };  TAVO_DESCRIBE(Area, name)
//   struct Size { int32_t width, height; };  TAVO_DESCRIBE(Size, width, height)
//
//   auto responder = kit::Responder::Create(manager->CreateRpcServer());
//   responder->Handle("measure", [](Area area, kit::Request<Size> request) {
//     request.Progress(0.5);
//     request.Finish(Measure(area));
//   });
//   kit::Subscription seen = responder->OnNotify<int64_t>("seen", [](int64_t id) { Mark(id); });
//   responder->Run();
//
// A caller of this kit (kit/caller.h) learns which methods are typed, and sends a token with each
// call of them; progress and cancel name the call by this token. Any other client calls the same
// methods as those of a plain server: it gets no progress and cannot cancel.
//
// Threads:   any. Handlers run where flrpc/server.h calls its own, and under no lock of the kit.
//            What a handler captures is destroyed with the responder, or by a later Handle of the
//            same method; a handler that runs meanwhile on another thread ends first.
// Ownership: a responder shares its server, of which it should be the only responder. It owns the
//            handlers, so a handler must not own the responder. When the responder ends, its
//            methods are unknown again, and the requests that are not answered do nothing any more.
// Errors:    bad parameters are answered with kInvalidParams and the place of the fault, an
//            exception of a handler with kInternalError and an error line. A bad notification is a
//            warning line, an exception of its handler an error line.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <type_traits>
#include <unordered_map>
#include <utility>
#include <vector>

#include "cw/encodable_value.h"
#include "flrpc/server.h"
#include "forge/signals.h"
#include "kit/subscription.h"
#include "kit/values.h"

namespace tavo::kit {

constexpr int kInvalidParams = -32602;  // The parameters are not of the handler's type.

class Responder;

namespace details {

// What the copies of a Request share.
class OpenRequest {
 public:
  OpenRequest(std::string_view method, std::unique_ptr<flrpc::IReply>&& reply,
              std::weak_ptr<Responder> responder);
  ~OpenRequest();  // Answers with kInternalError if nobody has answered.
  OpenRequest(const OpenRequest&) = delete;
  OpenRequest& operator=(const OpenRequest&) = delete;

  void SendResult(cw::EncodableValue result);
  void SendError(int code, std::string_view message, cw::EncodableValue data);

  bool TakesProgress() const;
  void SendProgress(cw::EncodableValue value);

  bool IsCancelled() const;
  void OnCancel(std::function<void()> function);

  // For the responder. SetToken comes before the request is shown to anybody.
  void SetToken(int64_t token) { token_ = token; }
  void Cancel();
  void Abandon();  // Nothing that is called afterwards has an effect.

 private:
  using Functions = std::vector<std::function<void()>>;

  std::unique_ptr<flrpc::IReply> TakeReply();

  // Constant once the request is shown.
  const std::string method_;
  const std::weak_ptr<Responder> responder_;
  std::optional<int64_t> token_;  // Empty: the caller takes no progress and cannot cancel.

  mutable std::mutex mutex_;
  // Guarded by mutex_.
  std::unique_ptr<flrpc::IReply> reply_;  // Null: answered, or abandoned.
  Functions on_cancel_;
  bool is_cancelled_ = false;
};

}  // namespace details

// A request that waits for its answer, which is an R. Copies are the same request. The first answer
// counts and the others do nothing. When the last copy goes unanswered, the caller is told so with
// kInternalError. A request that outlives its responder or its server does nothing.
//
// Threads: any.
// Errors:  an exception of the transport leaves the operation; the request counts as answered then.
template <typename R>
class Request {
 public:
  using Value = R;

  explicit Request(std::shared_ptr<details::OpenRequest> open) : open_(std::move(open)) {}

  // There is no move: a request that was moved from would have nobody to answer.
  Request(const Request&) = default;
  Request& operator=(const Request&) = default;

  // Answers the request.
  void Finish(R result) const;
  void Fail(int code, std::string_view message, cw::EncodableValue data = {}) const;

  // Tells the caller something about the progress, of any type that From (kit/values.h) takes.
  // Nothing is sent to a caller that takes no progress, and after the answer.
  template <typename T>
  void Progress(const T& value) const;

  // The caller does not want the answer any more. An answer does no harm, and ends at the caller.
  bool IsCancelled() const { return open_->IsCancelled(); }

  // Calls the function once, when the caller cancels the request; at once if it has already.
  // Nothing is called after the answer, which destroys the function. The function may own a copy of
  // the request: it counts as a copy then, until the answer or the end of the responder.
  void OnCancel(std::function<void()> function) const { open_->OnCancel(std::move(function)); }

 private:
  std::shared_ptr<details::OpenRequest> open_;  // Never null.
};

class Responder final : public std::enable_shared_from_this<Responder> {
  struct PrivateTag {
    explicit PrivateTag() = default;
  };

 public:
  // Null when there is no server.
  static std::shared_ptr<Responder> Create(std::shared_ptr<flrpc::IServer> server);

  Responder(std::shared_ptr<flrpc::IServer> server, PrivateTag);
  ~Responder();
  Responder(const Responder&) = delete;
  Responder& operator=(const Responder&) = delete;

  // Sets the handler of a method in the place of an earlier one: a function of the parameters and a
  // Request. A caller learns when it connects which methods there are, so set them before Run. The
  // second form is for a handler whose types cannot be deduced.
  template <typename Handler>
  void Handle(std::string_view method, Handler&& handler);
  template <typename Params, typename R, typename Handler>
  void Handle(std::string_view method, Handler&& handler);

  // Adds a handler, a function of a T, of the notifications of a method. The end of the
  // subscription removes it.
  template <typename T, typename Handler>
  [[nodiscard]] Subscription OnNotify(std::string_view method, Handler&& handler);

  // Sends a notification to the client. It waits until a client has connected.
  template <typename T>
  void Notify(std::string_view method, const T& value);

  // Starts to serve.
  void Run() { server_->Run(); }

 private:
  friend class details::OpenRequest;

  using OpenRequestPtr = std::shared_ptr<details::OpenRequest>;
  using RequestHandler = std::function<void(const cw::EncodableValue&, const OpenRequestPtr&)>;
  using NotifyHandler = std::function<void(const cw::EncodableValue&)>;
  using NotifySignal = forge::OwnedSignal<const cw::EncodableValue&>;

  static void ReportBadNotification(const std::string& method, const std::string& fault);

  void Begin();
  void Serve(std::string_view method, RequestHandler&& handler);
  Subscription Subscribe(std::string_view method, NotifyHandler&& handler);

  OpenRequestPtr Open(const std::string& method, std::unique_ptr<flrpc::IReply>&& reply,
                      std::optional<int64_t> token);
  void Forget(int64_t token);
  void ReceiveCancel(const cw::EncodableValue& params);
  cw::EncodableValue DescribeFeatures() const;

  const std::shared_ptr<flrpc::IServer> server_;  // Never null.

  mutable std::mutex mutex_;
  // Guarded by mutex_, under which nobody else is called.
  std::set<std::string> methods_;
  std::unordered_map<int64_t, std::weak_ptr<details::OpenRequest>> open_;  // By token.
  std::unordered_map<std::string, std::shared_ptr<NotifySignal>> notify_signals_;
};

// ------------------------------------------------------------------------------------------------

namespace details {

// The types of a handler, from the signature of the std::function that would hold it.
template <typename Function>
struct HandlerTypes;

template <typename Return, typename First, typename Second>
struct HandlerTypes<std::function<Return(First, Second)>> {
  using Params = std::decay_t<First>;
  using R = typename std::decay_t<Second>::Value;
};

}  // namespace details

template <typename R>
void Request<R>::Finish(R result) const {
  open_->SendResult(From(std::move(result)));
}

template <typename R>
void Request<R>::Fail(int code, std::string_view message, cw::EncodableValue data) const {
  open_->SendError(code, message, std::move(data));
}

template <typename R>
template <typename T>
void Request<R>::Progress(const T& value) const {
  if (open_->TakesProgress()) open_->SendProgress(From(value));
}

template <typename Handler>
void Responder::Handle(std::string_view method, Handler&& handler) {
  using Types =
      details::HandlerTypes<decltype(std::function(std::declval<std::decay_t<Handler>>()))>;
  Handle<typename Types::Params, typename Types::R>(method, std::forward<Handler>(handler));
}

template <typename Params, typename R, typename Handler>
void Responder::Handle(std::string_view method, Handler&& handler) {
  Serve(method, [handler = std::decay_t<Handler>(std::forward<Handler>(handler))](
                    const cw::EncodableValue& params, const OpenRequestPtr& open) mutable {
    auto typed = To<Params>(params, "params");
    if (!typed) return open->SendError(kInvalidParams, typed.GetFailure().error.message, {});
    handler(*std::move(typed), Request<R>(open));
  });
}

template <typename T, typename Handler>
Subscription Responder::OnNotify(std::string_view method, Handler&& handler) {
  return Subscribe(method, [method = std::string(method),
                            handler = std::decay_t<Handler>(std::forward<Handler>(handler))](
                               const cw::EncodableValue& params) mutable {
    auto typed = To<T>(params, "params");
    if (!typed) return ReportBadNotification(method, typed.GetFailure().error.message);
    handler(*std::move(typed));
  });
}

template <typename T>
void Responder::Notify(std::string_view method, const T& value) {
  server_->SendNotify(method, From(value));
}

}  // namespace tavo::kit
