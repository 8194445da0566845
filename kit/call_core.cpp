#include "kit/call_core.h"

#include <algorithm>
#include <exception>
#include <new>
#include <thread>

#include "cw/admission.h"
#include "cw/map_access.h"
#include "forge/fence.h"
#include "forge/logger.h"

namespace tavo::kit::details {
namespace {

using cw::EncodableMap;
using cw::EncodableValue;
using flrpc::Message;

constexpr char kFeatures[] = "$/features";
constexpr char kProgress[] = "$/progress";
constexpr char kCancel[] = "$/cancel";
constexpr char kToken[] = "$call";
constexpr char kParams[] = "$params";

constexpr Millis kFeaturesTimeout{5000};

// A message is a map. Its four or three keys and its texts are values beside the user's own.
constexpr cw::Surroundings kInRequest{1, 8};
constexpr cw::Surroundings kInNotification{1, 6};

// The text of the client's error for a message that exceeds the limits of a frame.
constexpr std::string_view kRefusal = "The message cannot be sent: ";

// Tokens are unique in the process, since several callers may share a client.
uint64_t DrawToken() {
  static std::atomic<uint64_t> last{0};
  return ++last;
}

EncodableValue ToValue(uint64_t token) { return static_cast<int64_t>(token); }

// Without memory for the text, the failure has an empty one: its call must end all the same.
Failure MakeFailure(Cause cause, std::string_view text, std::string_view more = {}) noexcept {
  try {
    return {cause, Message::Error(flrpc::kInternalError, std::string(text).append(more))};
  } catch (const std::bad_alloc&) {
    return {cause, Message::Error(flrpc::kInternalError, "")};
  }
}

// While an object lives, its thread hands a message to a client. A transport within the process may
// then answer this or another call, whose callback must not run within the caller's operation.
class SendingOnThisThread {
 public:
  SendingOnThisThread() { ++depth_; }
  ~SendingOnThisThread() { --depth_; }
  SendingOnThisThread(const SendingOnThisThread&) = delete;
  SendingOnThisThread& operator=(const SendingOnThisThread&) = delete;

  static bool Is() { return depth_ > 0; }

 private:
  static thread_local int depth_;
};

thread_local int SendingOnThisThread::depth_ = 0;

bool IsSame(const Message::Error& a, const Message::Error& b) {
  return a.code == b.code && a.message == b.message && a.data == b.data;
}

}  // namespace

// ---- The beginning and the end ----

std::shared_ptr<CallCore> CallCore::Create(std::shared_ptr<flrpc::IClient> client,
                                           std::shared_ptr<IClock> clock, const Limits& limits) {
  auto core = std::make_shared<CallCore>(std::move(client), std::move(clock), limits, PrivateTag{});
  core->Begin();
  return core;
}

CallCore::CallCore(std::shared_ptr<flrpc::IClient> client, std::shared_ptr<IClock> clock,
                   const Limits& limits, PrivateTag)
    : client_(std::move(client)),
      clock_(std::move(clock)),
      limits_{std::max<size_t>(1, limits.in_flight), limits.waiting,
              std::max<size_t>(1, limits.abandoned)},
      hub_(std::make_shared<NotifyHub>(client_)),
      watch_(std::make_shared<PeerWatch>(client_, clock_)) {}

void CallCore::Close() {
  is_closed_ = true;
  watch_->Stop();
  hub_->Close();
  std::unordered_map<uint64_t, CallPtr> calls;
  std::map<uint64_t, Outgoing> waiting;
  std::map<uint64_t, Outgoing> held;
  CallPtr later;
  std::vector<std::function<void()>> writable_waiters;
  {
    const std::lock_guard lock(mutex_);
    calls.swap(calls_);
    waiting.swap(waiting_);
    held.swap(held_);
    later = TakeLater();
    writable_waiters.swap(writable_waiters_);
    clock_->Cancel(later_timer_);
    clock_->Cancel(timeout_timer_);
    clock_->Cancel(features_timer_);
  }
  for (const auto& entry : calls) entry.second->Discard();
  for (; later; later = std::move(later->next_)) later->Discard();
}

void CallCore::Begin() {
  client_->OnNotify(kProgress, [weak = weak_from_this()](const Message::Notification& news) {
    if (const auto core = weak.lock()) core->HandleProgress(news.params);
  });
  client_->OnConnected([weak = weak_from_this()](const std::optional<Message::Error>& error) {
    if (const auto core = weak.lock()) core->HandleConnected(!error);
  });
}

// ---- Getting to know the peer ----

void CallCore::HandleConnected(bool is_connected) {
  if (!is_connected) return SetFeatures({});
  ArmFeaturesTimer();
  bool is_sent = false;
  forge::Fence(kFeatures, [this, &is_sent] {
    client_->SendRequest(kFeatures, {}, [weak = weak_from_this()](const auto& response) {
      const auto core = weak.lock();
      PeerFeatures features;
      forge::Fence(kFeatures, [&] { features = PeerFeatures::Read(response); });
      if (core) core->SetFeatures(std::move(features));
    });
    is_sent = true;
  });
  if (!is_sent) SetFeatures({});  // What waits finds out itself whether it can be sent.
}

// A peer that does not answer counts as one that does not know the question.
void CallCore::ArmFeaturesTimer() {
  forge::Fence("clock of a caller", [this] {
    const std::lock_guard lock(mutex_);
    features_timer_ = clock_->After(kFeaturesTimeout, [weak = weak_from_this()] {
      if (const auto core = weak.lock()) core->SetFeatures({});
    });
  });
}

void CallCore::SetFeatures(PeerFeatures features) {
  {
    const std::lock_guard lock(mutex_);
    if (features_) return;
    features_.emplace(std::move(features));
    clock_->Cancel(features_timer_);
    for (const auto& entry : waiting_) StopTime(*entry.second.call);
  }
  SendWaiting();
}

// ---- The user's operations ----

void CallCore::Start(std::string_view method, Argument params, const CallPtr& call) {
  try {
    if (Enter(method, params, call)) SendCall(call, method, std::move(params));
  } catch (...) {
    Drop(call);
    throw;
  }
}

void CallCore::Cancel(const CallPtr& call) {
  const auto self = shared_from_this();
  Outgoing unsent;
  {
    const std::lock_guard lock(mutex_);
    if (!Abandon(*call, unsent)) return;
  }
  call->SetFailure(MakeFailure(Cause::kCancelled, "The call was cancelled."));
  DeliverLater(call);
  SendCancel(*call);
  SendWaiting();
}

void CallCore::Drop(const CallPtr& call) {
  const auto self = shared_from_this();
  call->Discard();
  Outgoing unsent;
  {
    const std::lock_guard lock(mutex_);
    if (!Abandon(*call, unsent)) return;
  }
  SendCancel(*call);
  SendWaiting();
}

bool CallCore::Notify(std::string_view method, Argument value) {
  const auto self = shared_from_this();
  if (client_->HasConnectionFailed() || !IsSendable(method, value.Get())) return false;
  {
    const std::lock_guard lock(mutex_);
    if (!features_ || is_sending_ || !held_.empty()) {
      if (held_.size() >= limits_.waiting) return false;
      held_.emplace(DrawToken(), Outgoing{nullptr, std::string(method), value.Take()});
      return true;
    }
  }
  return PassOn(method, value.Get());
}

Subscription CallCore::OnNotify(std::string_view method, NotifyHub::Function handler) {
  return hub_->Add(method, std::move(handler));
}

void CallCore::OnWritable(std::function<void()> callback) {
  if (!callback) return;
  const std::lock_guard lock(mutex_);
  writable_waiters_.push_back(std::move(callback));
  NoteRoom();
}

// ---- What waits ----

bool CallCore::HasRoom() const {
  const bool has_room_for_calls =
      calls_.size() < limits_.in_flight || calls_.size() - limits_.in_flight < limits_.waiting;
  return has_room_for_calls && abandoned_.size() < limits_.abandoned;
}

bool CallCore::IsWritable() const {
  return HasRoom() && (held_.empty() || held_.size() < limits_.waiting);
}

void CallCore::NoteRoom() {
  if (!writable_waiters_.empty() && IsWritable()) ArmLater();
}

// Puts the call into the table. Returns whether the caller of this function must send it. Whoever
// sends what waits sends the others.
bool CallCore::Enter(std::string_view method, Argument& params, const CallPtr& call) {
  {
    const std::lock_guard lock(mutex_);
    if (HasRoom()) {
      const bool must_wait = !features_ || is_sending_ || !waiting_.empty() || !HasRoomInFlight();
      call->token_ = DrawToken();
      call->deadline_ = AddDelay(clock_->Now(), call->GetOptions().GetTimeout());
      if (must_wait && features_) StopTime(*call);
      ArmTimeout(call->deadline_);
      calls_.emplace(call->token_, call);
      if (must_wait) {
        waiting_.emplace(call->token_, Outgoing{call, std::string(method), params.Take()});
      } else {
        MarkSending(*call, method);
      }
      return !must_wait;
    }
  }
  call->SetFailure(MakeFailure(Cause::kOverloaded, "Too many calls are open."));
  DeliverLater(call);
  return false;
}

// One thread at a time sends what waits. What another one adds meanwhile is sent by that thread, so
// the order is kept.
void CallCore::SendWaiting() {
  {
    const std::lock_guard lock(mutex_);
    if (is_sending_ || (waiting_.empty() && held_.empty())) return;
    is_sending_ = true;
  }
  while (auto next = TakeWaiting()) {
    forge::Fence("message that has waited", [this, &next] {
      if (!next->call) return void(PassOn(next->method, next->params));
      SendCall(next->call, next->method, Argument(std::move(next->params)));
    });
  }
}

// A notification overtakes calls that wait for room, and no others.
std::optional<CallCore::Outgoing> CallCore::TakeWaiting() {
  const std::lock_guard lock(mutex_);
  const bool has_call = !waiting_.empty() && HasRoomInFlight();
  const bool has_notification = !held_.empty();
  if (!features_ || (!has_call && !has_notification)) {
    is_sending_ = false;
    return {};
  }
  const bool is_call =
      has_call && (!has_notification || waiting_.begin()->first < held_.begin()->first);
  auto& queue = is_call ? waiting_ : held_;
  Outgoing next = std::move(queue.begin()->second);
  queue.erase(queue.begin());
  if (is_call) {
    MarkSending(*next.call, next.method);
    RestartTime(*next.call);
  }
  NoteRoom();
  return next;
}

// ---- What goes out ----

void CallCore::MarkSending(PendingCall& call, std::string_view method) const {
  call.sending_ = PendingCall::Sending::kNow;
  call.has_token_on_wire_ = features_->methods.find(method) != features_->methods.end();
}

void CallCore::SendCall(const CallPtr& call, std::string_view method, Argument params) {
  try {
    if (call->has_token_on_wire_) {
      EncodableMap wrapped;
      wrapped.emplace(kToken, ToValue(call->token_));
      wrapped.emplace(kParams, params.Take());
      params = Argument(std::move(wrapped));
    }
    SendRequest(call, method, params.Get());
  } catch (const std::exception& error) {
    EndUnsent(call,
              MakeFailure(Cause::kDisconnected, "The request cannot be sent: ", error.what()));
  } catch (...) {
    EndUnsent(call, MakeFailure(Cause::kDisconnected, "The request cannot be sent."));
  }
  // An abandoned call could not be cancelled before the peer knew it.
  using Sending = PendingCall::Sending;
  if (call->sending_.exchange(Sending::kNo) == Sending::kAbandoned) SendCancel(*call);
}

void CallCore::SendRequest(const CallPtr& call, std::string_view method,
                           const EncodableValue& params) {
  const SendingOnThisThread sending;
  call->sent_params_ = &params;
  call->sender_ = std::this_thread::get_id();
  client_->SendRequest(method, params,
                       [weak = weak_from_this(), token = call->token_](const auto& response) {
                         if (const auto core = weak.lock()) core->HandleResponse(token, response);
                       });
}

bool CallCore::IsSendable(std::string_view method, const EncodableValue& value) {
  bool needs_bytes = false;  // Only the client can tell then.
  const char* const fault = cw::FindInadmissible(value, kInNotification, &needs_bytes);
  if (fault) FORGE_LOG(kError) << "Notification '" << method << "' dropped: " << fault;
  return !fault;
}

bool CallCore::PassOn(std::string_view method, const EncodableValue& value) {
  if (client_->HasConnectionFailed()) return false;
  bool is_sent = false;
  const SendingOnThisThread sending;
  forge::Fence("notification", [&] {
    client_->SendNotify(method, value);
    is_sent = true;
  });
  return is_sent;
}

// Tells a peer that knows the token. While the request is being sent, its sender does it.
void CallCore::SendCancel(PendingCall& call) {
  {
    const std::lock_guard lock(mutex_);
    if (!call.has_token_on_wire_ || !features_->has_cancel) return;
  }
  auto sending = PendingCall::Sending::kNow;
  if (call.sending_.compare_exchange_strong(sending, PendingCall::Sending::kAbandoned)) return;
  forge::Fence("cancel of a call", [this, &call] {
    PassOn(kCancel, EncodableMap{{kToken, ToValue(call.token_)}});
  });
}

// ---- What comes in ----

void CallCore::HandleResponse(uint64_t token, const Message::Response& response) {
  CallPtr call;
  bool has_waiting = false;
  {
    const std::lock_guard lock(mutex_);
    has_waiting = !waiting_.empty();
    const auto found = calls_.find(token);
    if (found == calls_.end()) {
      abandoned_.erase(token);
    } else {
      call = std::move(found->second);
      calls_.erase(found);
    }
    NoteRoom();
  }
  if (!call) return;
  try {
    if (const auto* error = response.GetError()) {
      call->SetFailure(ToFailure(*call, *error));
    } else {
      call->SetValue(*response.GetResult());
    }
  } catch (const std::exception& error) {
    call->SetFailure(MakeFailure(Cause::kBadValue, "The answer cannot be read: ", error.what()));
  } catch (...) {
    call->SetFailure(MakeFailure(Cause::kBadValue, "The answer cannot be read."));
  }
  if (has_waiting) SendWaiting();
  const bool is_within_call =
      SendingOnThisThread::Is() || call->sending_ == PendingCall::Sending::kNow;
  is_within_call ? DeliverLater(call) : Deliver(call);
}

void CallCore::HandleProgress(const EncodableValue& params) {
  const auto token = cw::Get<int64_t>(&params, kToken);
  if (!token) return;
  CallPtr call;
  std::shared_ptr<forge::IDispatcher> executor;
  {
    const std::lock_guard lock(mutex_);
    const auto found = calls_.find(static_cast<uint64_t>(*token));
    if (found == calls_.end()) return;
    const CallOptions& options = found->second->GetOptions();
    if (options.DoesProgressRenew()) {
      found->second->deadline_ = AddDelay(clock_->Now(), options.GetTimeout());
    }
    if (!options.GetProgressFunction()) return;
    call = found->second;
    executor = options.GetExecutor();
  }
  const auto* const value = cw::Find(&params, "value");
  if (!executor) return call->RunProgress(value ? *value : EncodableValue());
  const auto run = [weak = weak_from_this(), weak_call = std::weak_ptr(call),
                    value = value ? *value : EncodableValue()] {
    const auto core = weak.lock();
    const auto told = weak_call.lock();
    if (core && told && !core->is_closed_) told->RunProgress(value);
  };
  forge::Fence("executor of a call", [&] { executor->Invoke(run, 0); });
}

// The client's own errors have the code and the texts that a peer's error may have as well. What
// the client knows tells them apart.
Failure CallCore::ToFailure(const PendingCall& call, const Message::Error& error) const {
  if (IsRefusal(call, error)) return MakeFailure(Cause::kTooLarge, error.message);
  if (IsErrorOfLoss(error)) return MakeFailure(Cause::kDisconnected, error.message);
  return {Cause::kPeer, error};
}

// A client refuses a message that exceeds the limits of a frame while it is handed to the client.
bool CallCore::IsRefusal(const PendingCall& call, const Message::Error& error) {
  if (error.code != flrpc::kInternalError || error.message.rfind(kRefusal, 0) != 0) return false;
  const bool is_being_sent = call.sending_ != PendingCall::Sending::kNo;
  if (!is_being_sent || call.sender_ != std::this_thread::get_id()) return false;
  bool needs_bytes = false;  // Only the client can tell then: it is believed.
  return cw::FindInadmissible(*call.sent_params_, kInRequest, &needs_bytes) || needs_bytes;
}

// A client that has failed answers every request at once with the error of its failure. An error
// that is another one has come from the peer before.
bool CallCore::IsErrorOfLoss(const Message::Error& error) const {
  if (!client_->HasConnectionFailed()) return false;
  const auto loss = std::make_shared<std::optional<Message::Error>>();
  client_->SendRequest("", {}, [loss](const Message::Response& response) {
    if (const auto* reason = response.GetError()) loss->emplace(*reason);
  });
  return !*loss || IsSame(**loss, error);
}

// ---- How a call ends ----

// Takes a call out that was not answered. A call that was not sent is moved to `unsent`.
bool CallCore::Abandon(const PendingCall& call, Outgoing& unsent) {
  const auto found = calls_.find(call.token_);
  if (found == calls_.end()) return false;
  const auto waiting = waiting_.find(call.token_);
  if (waiting == waiting_.end()) {
    abandoned_.insert(call.token_);
  } else {
    unsent = std::move(waiting->second);
    waiting_.erase(waiting);
  }
  calls_.erase(found);
  NoteRoom();
  return true;
}

// The client does not have the request, so it gives no answer. A call that was abandoned meanwhile
// counts no more, and one that was answered meanwhile keeps its answer.
void CallCore::EndUnsent(const CallPtr& call, Failure failure) {
  {
    const std::lock_guard lock(mutex_);
    abandoned_.erase(call->token_);
    if (calls_.erase(call->token_) == 0) return;
    NoteRoom();
  }
  call->SetFailure(std::move(failure));
  DeliverLater(call);
  SendWaiting();
}

void CallCore::Deliver(const CallPtr& call) {
  const auto executor = call->TakeExecutor();
  if (is_closed_) return call->Discard();
  if (!executor) return call->Run();
  const auto run = [weak = weak_from_this(), call] {
    const auto core = weak.lock();
    core && !core->is_closed_ ? call->Run() : call->Discard();
  };
  forge::Fence("executor of a call", [&] { executor->Invoke(run, 0); });
}

void CallCore::DeliverLater(const CallPtr& call) {
  const std::lock_guard lock(mutex_);
  (last_later_ ? last_later_->next_ : first_later_) = call;
  last_later_ = call.get();
  ArmLater();
}

// ---- The timers ----

CallCore::CallPtr CallCore::TakeLater() {
  last_later_ = nullptr;
  return std::move(first_later_);
}

void CallCore::ArmLater() {
  if (later_timer_ != 0) return;
  forge::Fence("clock of a caller", [this] {
    later_timer_ = clock_->After(Millis::zero(), [weak = weak_from_this()] {
      if (const auto core = weak.lock()) core->RunLater();
    });
  });
}

void CallCore::RunLater() {
  CallPtr call;
  std::vector<std::function<void()>> writable_waiters;
  {
    const std::lock_guard lock(mutex_);
    later_timer_ = 0;
    call = TakeLater();
    if (IsWritable()) writable_waiters.swap(writable_waiters_);
  }
  while (call) {
    CallPtr next = std::move(call->next_);
    Deliver(call);
    call = std::move(next);
  }
  for (const auto& callback : writable_waiters) {
    if (!is_closed_) forge::Fence("OnWritable", callback);
  }
}

void CallCore::StopTime(PendingCall& call) {
  if (call.GetOptions().IsTimeoutInFlight()) call.deadline_ = Millis::max();
}

void CallCore::RestartTime(PendingCall& call) {
  if (!call.GetOptions().IsTimeoutInFlight()) return;
  call.deadline_ = AddDelay(clock_->Now(), call.GetOptions().GetTimeout());
  forge::Fence("clock of a caller", [this, &call] { ArmTimeout(call.deadline_); });
}

void CallCore::ArmTimeout(Millis deadline) {
  if (deadline >= timeout_at_) return;
  clock_->Cancel(timeout_timer_);
  timeout_at_ = Millis::max();  // Until there is a timer: the next lines may throw.
  timeout_timer_ =
      clock_->After(deadline - clock_->Now(), [weak = weak_from_this(), round = ++timeout_round_] {
        if (const auto core = weak.lock()) core->HandleTimeout(round);
      });
  timeout_at_ = deadline;
}

// The callbacks come first: to cancel may take long, since the client may be busy.
void CallCore::HandleTimeout(uint64_t round) {
  const std::vector<CallPtr> calls = TakeTimedOut(round);
  for (const CallPtr& call : calls) {
    call->SetFailure(MakeFailure(Cause::kTimeout, "The peer has not answered in time."));
    Deliver(call);
  }
  for (const CallPtr& call : calls) SendCancel(*call);
  SendWaiting();
}

// Also arms the timer for the next deadline. Deadlines move, so the timer may come too early.
std::vector<CallCore::CallPtr> CallCore::TakeTimedOut(uint64_t round) {
  std::vector<CallPtr> due;
  std::vector<Outgoing> unsent;
  const std::lock_guard lock(mutex_);
  if (round != timeout_round_) return due;
  timeout_at_ = Millis::max();
  const Millis now = clock_->Now();
  Millis next = Millis::max();
  for (const auto& [token, call] : calls_) {
    if (call->deadline_ <= now) {
      due.push_back(call);
    } else {
      next = std::min(next, call->deadline_);
    }
  }
  std::sort(due.begin(), due.end(), [](const CallPtr& a, const CallPtr& b) {
    return std::pair(a->deadline_, a->token_) < std::pair(b->deadline_, b->token_);
  });
  unsent.resize(due.size());
  for (size_t i = 0; i < due.size(); ++i) Abandon(*due[i], unsent[i]);
  ArmTimeout(next);
  return due;
}

}  // namespace tavo::kit::details
