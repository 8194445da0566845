#include "kit/responder.h"

#include <atomic>
#include <exception>

#include "cw/map_access.h"
#include "forge/fence.h"
#include "forge/logger.h"

namespace tavo::kit {
namespace {

using cw::EncodableList;
using cw::EncodableMap;
using cw::EncodableValue;

constexpr char kFeaturesMethod[] = "$/features";
constexpr char kPingMethod[] = "$/ping";
constexpr char kCancelMethod[] = "$/cancel";
constexpr char kProgressMethod[] = "$/progress";
constexpr char kCallKey[] = "$call";
constexpr char kParamsKey[] = "$params";
constexpr char kValueKey[] = "value";

// The parameters of a request, and the token of the call if there is one.
struct Call {
  std::optional<int64_t> token;
  const EncodableValue* params;
};

// Parameters that only resemble a wrapper are plain parameters.
Call Unwrap(const EncodableValue& params) {
  const auto* const map = params.GetIf<EncodableMap>();
  const auto token = cw::Get<int64_t>(&params, kCallKey);
  const auto* const wrapped = cw::Find(&params, kParamsKey);
  if (!token || !wrapped || map->size() != 2) return {{}, &params};
  return {token, wrapped};
}

void FailHandler(const std::string& method, details::OpenRequest& open, const char* reason) {
  const std::string text = "The handler of \"" + method + "\" failed: " + reason;
  FORGE_LOG(kError) << text;
  open.SendError(flrpc::kInternalError, text, {});
}

}  // namespace

namespace details {

OpenRequest::OpenRequest(std::string_view method, std::unique_ptr<flrpc::IReply>&& reply,
                         std::weak_ptr<Responder> responder)
    : method_(method), responder_(std::move(responder)), reply_(std::move(reply)) {}

OpenRequest::~OpenRequest() {
  if (!reply_) return;
  forge::Fence("a request that was dropped", [this] {
    SendError(flrpc::kInternalError,
              "The request \"" + method_ + "\" was dropped without an answer", {});
  });
}

void OpenRequest::SendResult(EncodableValue result) {
  if (const auto reply = TakeReply()) reply->SendResult(std::move(result));
}

void OpenRequest::SendError(int code, std::string_view message, EncodableValue data) {
  if (const auto reply = TakeReply()) reply->SendError(code, message, std::move(data));
}

// Null when there is nobody to answer, or no answer is due. The functions are destroyed outside the
// lock, because they may own copies of this request.
std::unique_ptr<flrpc::IReply> OpenRequest::TakeReply() {
  Functions dropped;
  std::unique_ptr<flrpc::IReply> reply;
  {
    const std::lock_guard lock(mutex_);
    reply.swap(reply_);
    dropped.swap(on_cancel_);
  }
  const auto responder = responder_.lock();
  if (!reply || !responder) return nullptr;
  if (token_) responder->Forget(*token_);
  return reply;
}

bool OpenRequest::TakesProgress() const {
  const std::lock_guard lock(mutex_);
  return token_ && reply_ && !is_cancelled_;
}

void OpenRequest::SendProgress(EncodableValue value) {
  const auto responder = responder_.lock();
  if (!responder || !TakesProgress()) return;
  EncodableMap params = {{kCallKey, *token_}};
  params.emplace(kValueKey, std::move(value));
  responder->server_->SendNotify(kProgressMethod, std::move(params));
}

bool OpenRequest::IsCancelled() const {
  const std::lock_guard lock(mutex_);
  return is_cancelled_ || responder_.expired();
}

void OpenRequest::OnCancel(std::function<void()> function) {
  if (!function || !token_) return;
  {
    const std::lock_guard lock(mutex_);
    if (!reply_) return;
    if (!is_cancelled_) return on_cancel_.push_back(std::move(function));
  }
  function();
}

void OpenRequest::Cancel() {
  Functions functions;
  {
    const std::lock_guard lock(mutex_);
    if (!reply_) return;
    is_cancelled_ = true;
    functions.swap(on_cancel_);
  }
  for (const auto& function : functions) forge::Fence("a handler of a cancel", function);
}

void OpenRequest::Abandon() { TakeReply(); }

}  // namespace details

std::shared_ptr<Responder> Responder::Create(std::shared_ptr<flrpc::IServer> server) {
  if (!server) return nullptr;
  auto responder = std::make_shared<Responder>(std::move(server), PrivateTag{});
  responder->Begin();
  return responder;
}

Responder::Responder(std::shared_ptr<flrpc::IServer> server, PrivateTag)
    : server_(std::move(server)) {}

// A request that is not answered may be owned by its own function (OnCancel): abandoning it ends
// that. No other thread uses this any more.
Responder::~Responder() {
  forge::Fence("the end of a responder", [this] {
    for (const auto& entry : std::exchange(open_, {})) {
      if (const auto open = entry.second.lock()) open->Abandon();
    }
    for (const char* method : {kFeaturesMethod, kPingMethod}) server_->OnRequest(method, {});
    for (const std::string& method : methods_) server_->OnRequest(method, {});
  });
}

// What callers of this kit ask by themselves.
void Responder::Begin() {
  server_->OnRequest(kFeaturesMethod,
                     [weak = weak_from_this()](const auto&, const auto&, auto&& reply) {
                       if (const auto self = weak.lock())
                         reply->SendResult(self->DescribeFeatures());
                     });
  server_->OnRequest(kPingMethod,
                     [](const auto&, const auto&, auto&& reply) { reply->SendResult({}); });
  server_->OnNotify(kCancelMethod, [weak = weak_from_this()](const auto& notification) {
    if (const auto self = weak.lock()) self->ReceiveCancel(notification.params);
  });
}

EncodableValue Responder::DescribeFeatures() const {
  EncodableList methods;
  {
    const std::lock_guard lock(mutex_);
    methods.assign(methods_.begin(), methods_.end());
  }
  EncodableMap features = {{"cancel", true}, {"progress", true}};
  features.emplace("methods", std::move(methods));
  return features;
}

// The handler keeps the responder alive only as long as it takes to open the request.
void Responder::Serve(std::string_view method, RequestHandler&& handler) {
  {
    const std::lock_guard lock(mutex_);
    methods_.emplace(method);
  }
  server_->OnRequest(method, [weak = weak_from_this(), handler = std::move(handler)](
                                 const std::string& name, const EncodableValue& params,
                                 std::unique_ptr<flrpc::IReply>&& reply) {
    const Call call = Unwrap(params);
    OpenRequestPtr open;
    if (const auto self = weak.lock()) open = self->Open(name, std::move(reply), call.token);
    if (!open) return;
    try {
      handler(*call.params, open);
    } catch (const std::exception& error) {
      FailHandler(name, *open, error.what());
    } catch (...) {
      FailHandler(name, *open, "it threw something that is no std::exception");
    }
  });
}

Responder::OpenRequestPtr Responder::Open(const std::string& method,
                                          std::unique_ptr<flrpc::IReply>&& reply,
                                          std::optional<int64_t> token) {
  auto open = std::make_shared<details::OpenRequest>(method, std::move(reply), weak_from_this());
  if (!token) return open;
  {
    const std::lock_guard lock(mutex_);
    if (open_.try_emplace(*token, open).second) {
      open->SetToken(*token);
      return open;
    }
  }
  FORGE_LOG(kWarn) << "A call of \"" << method << "\" has the token of another call, " << *token
                   << ": it is served without a token";
  return open;
}

void Responder::Forget(int64_t token) {
  const std::lock_guard lock(mutex_);
  open_.erase(token);
}

// An unknown token is no fault: the answer and the cancel may have crossed.
void Responder::ReceiveCancel(const EncodableValue& params) {
  const auto token = cw::Get<int64_t>(&params, kCallKey);
  if (!token) {
    FORGE_LOG(kWarn) << "A cancel without the token of a call is ignored";
    return;
  }
  OpenRequestPtr open;
  {
    const std::lock_guard lock(mutex_);
    const auto found = open_.find(*token);
    if (found != open_.end()) open = found->second.lock();
  }
  if (open) open->Cancel();
}

// A warning line, since the peer is at fault.
void Responder::ReportBadNotification(const std::string& method, const std::string& fault) {
  FORGE_LOG(kWarn) << "Notification \"" << method << "\" is ignored: " << fault;
}

Subscription Responder::Subscribe(std::string_view method, NotifyHandler&& handler) {
  std::shared_ptr<NotifySignal> signal;
  bool is_new = false;
  {
    const std::lock_guard lock(mutex_);
    auto& entry = notify_signals_[std::string(method)];
    is_new = !entry;
    if (is_new) entry = std::make_shared<NotifySignal>();
    signal = entry;
  }
  // Behind a pointer: an emission copies what is subscribed, and a handler may have a state.
  const auto shared = std::make_shared<const NotifyHandler>(std::move(handler));
  // An emission that runs calls who has unsubscribed meanwhile, too.
  const auto is_removed = std::make_shared<std::atomic<bool>>(false);
  const auto call = [shared, is_removed, self = weak_from_this()](const EncodableValue& params) {
    if (*is_removed || self.expired()) return;
    forge::Fence("a handler of a notification", [&] { (*shared)(params); });
  };
  const uint32_t id = signal->Subscribe(call);
  const std::weak_ptr<NotifySignal> weak = signal;
  if (is_new) {  // The server keeps its handler for ever; the signal ends with the responder.
    server_->OnNotify(method, [weak](const flrpc::Message::Notification& notification) {
      if (const auto live = weak.lock()) live->Emit(notification.params);
    });
  }
  return Subscription([weak, id, is_removed] {
    *is_removed = true;
    if (const auto live = weak.lock()) live->Unsubscribe(id);
  });
}

}  // namespace tavo::kit
