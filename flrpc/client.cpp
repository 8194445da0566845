#include "flrpc/client.h"

#include <algorithm>
#include <atomic>
#include <mutex>
#include <new>
#include <unordered_map>
#include <utility>
#include <vector>

#include "flrpc/receiver.h"
#include "flrpc/request_ids.h"
#include "flrpc/sendable.h"
#include "forge/fence.h"
#include "forge/logger.h"
#include "forge/object.h"
#include "forge/signals.h"

namespace flrpc {
namespace {

using cw::EncodableValue;
using OptionalError = std::optional<Message::Error>;

constexpr char kConnect[] = "flrpc.connected";
constexpr uint32_t kMaxConnectRequests = 4;

// Without memory for the text, the error has an empty one.
Message::Error MakeUnknownError() noexcept {
  try {
    return Message::Error(kInternalError, "Unknown runtime error");
  } catch (const std::bad_alloc&) {
    return Message::Error(kInternalError, "");
  }
}

// Each public operation begins by locking weak_from_this: what it calls may drop the last owner of
// this, which then lives until the operation returns. The lock is null while this is destroyed.
class Client final : public IOwnedClient,
                     public forge::details::CounterClient,
                     public std::enable_shared_from_this<Client> {
  struct PrivateTag {
    explicit PrivateTag() = default;
  };

 public:
  Client(std::function<void(Message&&)>&& send, PrivateTag)
      : receiver_(
            std::move(send), [this](const Message& message) { return OnMessage(message); },
            [this](const Message::ID& id) { OnUnsent(id); }) {}

  static std::shared_ptr<Client> Make(std::function<void(Message&&)>&& send) {
    return std::make_shared<Client>(std::move(send), PrivateTag{});
  }

  bool IsConnected() const override { return state_ == State::kConnected; }
  bool HasConnectionFailed() const override { return state_ == State::kFailed; }

  // A captured object may call a client that is being destroyed: nothing happens then.

  void Run() override {
    const auto self = weak_from_this().lock();
    if (!self) return;
    started_.Subscribe([weak = weak_from_this()](const OptionalError& error) {
      if (const auto client = weak.lock()) client->Connect(error);
    });
  }

  void OnConnected(ConnectionCallback&& callback) override {
    const auto self = weak_from_this().lock();
    if (!self) return;
    connected_.Subscribe(std::move(callback));
  }

  void OnDisconnected(ConnectionCallback&& callback) override {
    const auto self = weak_from_this().lock();
    if (!self) return;
    disconnected_.Subscribe(std::move(callback));
  }

  void SendRequest(std::string_view method, const EncodableValue& params,
                   ResponseCallback&& callback) override {
    const auto self = weak_from_this().lock();
    if (!self) return;
    const Message::ID id = details::RequestIds::Get().IdOf(details::RequestIds::Get().Draw());
    auto request = Message::CreateRequest(id, method, params);
    if (const char* fault = details::FindUnsendable(request)) {
      if (callback) callback(Message::Response(id, details::MakeUnsendableError(fault)));
      return;
    }
    try {
      details::SendGuard guard(receiver_);  // Sends when the mutex is free.
      const std::lock_guard lock(mutex_);
      if (!failure_) {
        pending_.try_emplace(id, std::move(callback));
        return Submit(std::move(request), guard);
      }
    } catch (...) {
      TakeBack(id);  // The exception tells the caller of the failure; the callback is not called.
      throw;
    }
    if (callback) callback(Message::Response(id, *failure_));  // failure_ does not change any more.
  }

  void SendNotify(std::string_view method, const EncodableValue& params) override {
    const auto self = weak_from_this().lock();
    if (!self) return;
    receiver_.SendNotification(method, params);
  }

  void OnNotify(std::string_view method, NotifyCallback&& handler) override {
    const auto self = weak_from_this().lock();
    if (!self) return;
    receiver_.OnNotify(method, std::move(handler));
  }

  void ReceiveMessage(Message&& message) override {
    const auto self = weak_from_this().lock();
    if (!self) return;
    details::ReceiveGuard guard(receiver_);  // Delivers when the mutex is free.
    const std::lock_guard lock(mutex_);
    if (IsConnectResponse(message)) {
      guard.ReceiveImmediately(std::move(message));
    } else {
      guard.Receive(std::move(message));
    }
  }

  void NotifyDisconnected(OptionalError error) override {
    const auto self = weak_from_this().lock();
    if (!self) return;
    Fail(std::move(error));
  }

  void NotifyStarted(OptionalError error) override {
    const auto self = weak_from_this().lock();
    if (!self) return;
    started_.Emit(std::move(error));
  }

 private:
  enum class State : uint32_t { kConnecting = 1, kConnected = 2, kFailed = 3 };

  using PendingRequests = std::unordered_map<Message::ID, ResponseCallback>;

  // The caller holds mutex_. The handshake does not go through the queue, which waits for it.
  void Submit(Message&& request, details::SendGuard& guard) {
    if (state_ == State::kConnecting && attempts_ > 0 && request.IsRequest(kConnect)) {
      connect_requests_.push_back(request);
      guard.SendImmediately(std::move(request));
    } else {
      guard.Send(std::move(request));
    }
  }

  // Removes a request that will not be answered, and returns its callback. Empty when the callback
  // was called or taken already.
  ResponseCallback TakeBack(const Message::ID& id) {
    const std::lock_guard lock(mutex_);
    const auto is_taken = [&id](const Message& request) { return request.GetRequest()->id == id; };
    connect_requests_.erase(
        std::remove_if(connect_requests_.begin(), connect_requests_.end(), is_taken),
        connect_requests_.end());
    const auto node = pending_.extract(id);
    return node ? std::move(node.mapped()) : ResponseCallback();
  }

  // A request that had waited could not be sent. Its sender has returned, so no exception can tell
  // it.
  void OnUnsent(const Message::ID& id) {
    forge::Fence("response callback", [this, &id] {
      const auto callback = TakeBack(id);
      const Message::Error error(kInternalError, "The request could not be sent.");
      if (callback) callback(Message::Response(id, error));
    });
  }

  // The caller holds mutex_.
  bool IsConnectResponse(const Message& message) const {
    return std::any_of(
        connect_requests_.begin(), connect_requests_.end(),
        [&message](const Message& request) { return request.IsResponseForThis(message); });
  }

  void Connect(const OptionalError& error) {
    if (state_ != State::kConnecting) return;
    if (error) return Fail(error);
    if (attempts_++ < kMaxConnectRequests) {
      SendRequest(kConnect, {}, [this](const Message::Response& response) {
        OnConnectResponse(response);  // The callback is kept in the client alone.
      });
    } else {
      FORGE_LOG(kError)
          << "The maximum number of requests for the Connect event has been exceeded.";
      Fail(Message::Error(kInternalError, "Cannot connect to server."));
    }
  }

  void OnConnectResponse(const Message::Response& response) {
    if (state_ != State::kConnecting) return;  // The answer to another attempt came first.
    if (const auto* error = response.GetError()) {
      if (attempts_ >= kMaxConnectRequests) return Fail(*error);
      FORGE_LOG(kError) << "Connect error: " << error->message;
      return Connect(std::nullopt);
    }
    if (!EnterConnected()) return;
    details::OpenQueue(receiver_, [this] { connected_.Emit(std::nullopt); });
  }

  // False when the client has failed meanwhile.
  bool EnterConnected() {
    const std::lock_guard lock(mutex_);
    State expected = State::kConnecting;
    if (!state_.compare_exchange_strong(expected, State::kConnected)) return false;
    connect_requests_.clear();
    return true;
  }

  void Fail(OptionalError error) {
    if (!error) error = MakeUnknownError();
    PendingRequests given_up;
    State before;
    {
      // Nothing here throws after the lock: the client fails completely or not at all.
      const std::lock_guard lock(mutex_);
      before = state_.exchange(State::kFailed);
      if (before == State::kFailed) return;
      failure_ = std::move(error);
      connect_requests_.clear();
      given_up.swap(pending_);
    }
    if (before == State::kConnecting) receiver_.Close();
    for (const auto& entry : given_up) {
      forge::Fence("response callback", [this, &entry] {
        const auto& callback = entry.second;
        if (callback) callback(Message::Response(entry.first, *failure_));
      });
    }
    auto& signal = before == State::kConnecting ? connected_ : disconnected_;
    signal.Emit(failure_);
  }

  // The receiver's handler: takes the responses to our requests.
  bool OnMessage(const Message& message) {
    const auto* response = message.GetResponse();
    if (!response) return false;
    ResponseCallback callback;
    {
      const std::lock_guard lock(mutex_);
      const auto found = pending_.find(response->id);
      const auto number = details::RequestIds::Get().NumberOf(response->id);
      if (found == pending_.end()) {
        if (failure_ || !number || !answered_.Contains(*number)) return false;
        FORGE_LOG(kError) << "Invalid server response";
        return true;
      }
      callback = std::move(found->second);
      pending_.erase(found);
      answered_.Add(*number);
    }
    if (callback) callback(*response);
    return true;
  }

  details::Receiver receiver_;
  std::atomic<State> state_{State::kConnecting};  // Changed under mutex_, read without it.
  std::atomic<uint32_t> attempts_{0};
  forge::OwnedRunOnceSignal<OptionalError> started_;
  forge::OwnedRunOnceSignal<OptionalError> connected_;
  forge::OwnedRunOnceSignal<OptionalError> disconnected_;

  std::mutex mutex_;
  // Guarded by mutex_. No callback runs under it.
  PendingRequests pending_;
  details::AnsweredRequests answered_;
  std::vector<Message> connect_requests_;  // Requests of the handshake that wait for their answer.
  OptionalError failure_;                  // Written once, when the client fails.
};

}  // namespace

IClient::~IClient() = default;

std::shared_ptr<IOwnedClient> IOwnedClient::Create(std::function<void(Message&&)>&& send) {
  return Client::Make(std::move(send));
}

}  // namespace flrpc
