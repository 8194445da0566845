#include "flrpc/server.h"

#include <mutex>
#include <shared_mutex>
#include <unordered_map>
#include <utility>

#include "flrpc/receiver.h"
#include "flrpc/sendable.h"
#include "forge/logger.h"
#include "forge/signals.h"

namespace flrpc {
namespace {

using cw::EncodableValue;

constexpr char kConnect[] = "flrpc.connected";

// Each public operation begins by locking weak_from_this: what it calls may drop the last owner of
// this, which then lives until the operation returns. The lock is null while this is destroyed.
class Server final : public std::enable_shared_from_this<Server>, public IOwnedServer {
  struct PrivateTag {
    explicit PrivateTag() = default;
  };

 public:
  Server(std::function<void(Message&&)>&& send, PrivateTag)
      : receiver_(std::move(send), [this](const Message& message) { return OnMessage(message); }) {}

  static std::shared_ptr<Server> Make(std::function<void(Message&&)>&& send) {
    return std::make_shared<Server>(std::move(send), PrivateTag{});
  }

  // A captured object may call a server that is being destroyed: nothing happens then.

  void SendNotify(std::string_view method, const EncodableValue& params) override {
    const auto self = weak_from_this().lock();
    if (!self) return;
    receiver_.SendNotification(method, params);
  }

  void OnConnected(ConnectionCallback&& callback) override {
    const auto self = weak_from_this().lock();
    if (!self) return;
    connected_.Subscribe(std::move(callback));
  }

  void OnRequest(std::string_view method, RequestHandler&& handler) override {
    const auto self = weak_from_this().lock();
    if (!self) return;
    auto shared = std::make_shared<const RequestHandler>(std::move(handler));
    const std::unique_lock lock(handlers_mutex_);
    handlers_[std::string(method)].swap(shared);
  }

  void OnNotify(std::string_view method, NotifyCallback&& handler) override {
    const auto self = weak_from_this().lock();
    if (!self) return;
    receiver_.OnNotify(method, std::move(handler));
  }

  void Run() override {
    const auto self = weak_from_this().lock();
    if (!self) return;
    bool connects = false;
    {
      const std::lock_guard lock(mutex_);
      if (std::exchange(running_, true)) return;
      connects = connect_request_.has_value() && ScheduleConnect();
    }
    if (connects) AnswerConnect();
  }

  void ReceiveMessage(Message&& message) override {
    const auto self = weak_from_this().lock();
    if (!self) return;
    bool connects = false;
    {
      details::ReceiveGuard guard(receiver_);  // Delivers when the mutex is free.
      const std::lock_guard lock(mutex_);
      const bool is_connect = !connect_done_ && message.IsRequest(kConnect);
      connects = is_connect && running_ && ScheduleConnect();
      if (connects || (is_connect && !running_ && !connect_request_)) {
        connect_request_ = std::move(message);
      } else {
        guard.Receive(std::move(message));
      }
    }
    if (connects) AnswerConnect();
  }

  // A response that the peer would refuse is replaced by an error.
  void Respond(Message&& response) {
    if (const char* fault = details::FindUnsendable(response)) {
      response =
          Message::CreateError(response.GetResponse()->id, details::MakeUnsendableError(fault));
    }
    receiver_.Send(std::move(response));
  }

 private:
  class Reply final : public IReply {
   public:
    Reply(Message::ID id, std::weak_ptr<Server> server)
        : id_(std::move(id)), server_(std::move(server)) {}

    void SendResult(EncodableValue result) override {
      if (const auto server = server_.lock()) {
        server->Respond(Message::CreateResponse(id_, std::move(result)));
      }
    }

    void SendError(int code, std::string_view message, EncodableValue data) override {
      if (const auto server = server_.lock()) {
        server->Respond(Message::CreateError(id_, code, message, std::move(data)));
      }
    }

   private:
    const Message::ID id_;
    const std::weak_ptr<Server> server_;
  };

  // The caller holds mutex_. Only one connecting request is answered. Others are queued, and their
  // method is unknown then.
  bool ScheduleConnect() {
    if (std::exchange(connect_scheduled_, true)) {
      FORGE_LOG(kError) << "The data is already filled.";
      return false;
    }
    return true;
  }

  // The answer is sent before all messages that wait. If that fails, the client may try again.
  void AnswerConnect() {
    try {
      receiver_.SendImmediately(Message::CreateResponse(GetConnectId(), {}));
    } catch (...) {
      FinishConnect(false);
      throw;
    }
    FinishConnect(true);
    details::OpenQueue(receiver_, [this] { connected_.Emit(std::nullopt); });
  }

  Message::ID GetConnectId() {
    const std::lock_guard lock(mutex_);
    return connect_request_->GetRequest()->id;
  }

  void FinishConnect(bool answered) {
    const std::lock_guard lock(mutex_);
    connect_done_ = answered;
    connect_scheduled_ = false;
    connect_request_.reset();
  }

  // The receiver's handler: takes the requests.
  bool OnMessage(const Message& message) {
    const auto* request = message.GetRequest();
    if (!request) return false;
    if (const auto handler = FindHandler(request->method)) {
      (*handler)(request->method, request->params,
                 std::make_unique<Reply>(request->id, weak_from_this()));
    } else {
      receiver_.Send(Message::CreateError(request->id, kMethodNotFound,
                                          "Unknown method '" + request->method + "()'", {}));
    }
    return true;
  }

  std::shared_ptr<const RequestHandler> FindHandler(const std::string& method) const {
    const std::shared_lock lock(handlers_mutex_);
    const auto found = handlers_.find(method);
    return found != handlers_.end() && *found->second ? found->second : nullptr;
  }

  details::Receiver receiver_;
  forge::OwnedRunOnceSignal<std::optional<Message::Error>> connected_;

  mutable std::shared_mutex handlers_mutex_;
  std::unordered_map<std::string, std::shared_ptr<const RequestHandler>>
      handlers_;  // Guarded by handlers_mutex_.

  std::mutex mutex_;
  // Guarded by mutex_. No handler runs under it.
  bool running_ = false;
  bool connect_scheduled_ = false;
  bool connect_done_ = false;
  std::optional<Message> connect_request_;  // Until it is answered.
};

}  // namespace

IReply::~IReply() = default;

IServer::~IServer() = default;

std::shared_ptr<IOwnedServer> IOwnedServer::Create(std::function<void(Message&&)>&& send) {
  return Server::Make(std::move(send));
}

}  // namespace flrpc
