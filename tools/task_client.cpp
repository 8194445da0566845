#include "tools/task_client.h"

#include <cstring>
#include <optional>
#include <utility>

#include "src/tavo_capi.h"
#include "tools/tavo_commands.h"

namespace tools {

using flrpc::Message;

namespace {

// The desk drops longer lines. A line is the text as {"data":"TEXT"}.
constexpr size_t kMaxText = (size_t{32} << 20) - 16;

constexpr size_t kMaxEarly = 1024;                  // Notifications before the connection,
constexpr size_t kMaxEarlySize = size_t{16} << 20;  // and their texts.

}  // namespace

// The service keeps it until the client is destroyed there, which may be after the TaskClient.
struct TaskClient::State {
  TAVORpcClientProcTable table{};
  _TAVORpcClientRef* ref = nullptr;
  std::shared_ptr<flrpc::IOwnedClient> client;  // Null: nobody listens any more.
  std::deque<Message::Notification> notifications;
  std::optional<Message::Error> failure;  // Why there is no connection.
  size_t early_size = 0;
  size_t sent = 0;
  bool is_running = false;   // The task has started.
  bool is_released = false;  // The service has destroyed its client: the task has ended.

  static State& Of(void* user_data) { return **static_cast<std::shared_ptr<State>*>(user_data); }

  static void OnStarted(void* user_data, int code, const char* text, unsigned int chunk_id) {
    State& state = Of(user_data);
    state.is_running = code == 0;
    std::optional<Message::Error> error;
    if (code != 0) error.emplace(code, text);
    state.table.UnlockResources(state.ref, chunk_id);
    if (const auto client = state.client) client->NotifyStarted(std::move(error));
  }

  static void OnMessage(void* user_data, const char* text, unsigned int chunk_id) {
    State& state = Of(user_data);
    const size_t size = std::strlen(text);
    Message message = Message::FromBase64(std::string(text));
    state.table.UnlockResources(state.ref, chunk_id);
    const auto client = state.client;
    if (!client) return;
    if (const auto* notification = message.GetNotification()) {
      state.Keep(*notification, size);
    } else {
      client->ReceiveMessage(std::move(message));
    }
  }

  // What comes before the connection is kept for later, up to the limits of any client.
  void Keep(const Message::Notification& notification, size_t size) {
    if (!client->IsConnected()) {
      early_size += size;
      if (notifications.size() >= kMaxEarly || early_size > kMaxEarlySize) return;
    }
    notifications.push_back(notification);
  }

  static void Release(void* user_data) {
    Of(user_data).is_released = true;
    delete static_cast<std::shared_ptr<State>*>(user_data);
  }

  void Send(const Message& message) {
    const std::string text = message.ToBase64();
    if (text.empty() || text.size() > kMaxText) return;
    if (table.SendMessage(ref, text.c_str()) == FORGE_RESULT_OK) ++sent;
  }
};

TaskClient::TaskClient(Session& session, const std::string& task)
    : session_(session), state_(std::make_shared<State>()) {
  const auto library = forge::Library::Create(session.GetLibraryPath() + "/libtavo.so");
  const auto load =
      library ? library->Resolve<decltype(&TAVOProcTableLoad)>("TAVOProcTableLoad") : nullptr;
  if (!load) throw CommandError(kNotStarted, "libtavo.so cannot be used");
  TAVOProcTable top{};
  load(&top, sizeof top);
  top.RpcClientProcTableLoad(&state_->table, sizeof state_->table);
  state_->ref = top.CreateRpcClient(top.Initialize());  // The session's manager.
  state_->client = flrpc::IOwnedClient::Create(
      [state = state_.get()](Message&& message) { state->Send(message); });
  state_->client->OnConnected(
      [state = state_.get()](const auto& error) { state->failure = error; });
  TAVORpcClientSlots slots{};
  slots.size = sizeof slots;
  slots.OnStarted = State::OnStarted;
  slots.OnMessage = State::OnMessage;
  slots.Release = State::Release;
  auto user_data = std::make_unique<std::shared_ptr<State>>(state_);
  slots.user_data = user_data.get();
  const ForgeResult result =
      state_->table.StartTask(state_->ref, task.c_str(), session.GetLibraryPath().c_str(), &slots);
  if (result != FORGE_RESULT_OK) {
    throw CommandError(kNotStarted, "the task \"" + task + "\" cannot be started");
  }
  user_data.release();  // NOLINT: Release deletes it.
}

TaskClient::~TaskClient() {
  state_->client.reset();
  state_->table.Release(state_->ref);
  if (!state_->is_running) return;  // The session's end drops the client.
  session_.Settle([this] { return state_->is_released; });
}

void TaskClient::Connect() {
  const flrpc::IOwnedClient& client = *state_->client;
  state_->client->Run();
  session_.RunUntil([&] { return client.IsConnected() || client.HasConnectionFailed(); });
  if (state_->failure) throw CommandError(kNotStarted, state_->failure->message);
}

void TaskClient::SendRequest(const std::string& method, const cw::EncodableValue& params,
                             flrpc::IClient::ResponseCallback callback) {
  const size_t sent = state_->sent;
  state_->client->SendRequest(method, params, std::move(callback));
  ThrowUnlessSent(sent);
}

void TaskClient::SendNotify(const std::string& method, const cw::EncodableValue& params) {
  const size_t sent = state_->sent;
  state_->client->SendNotify(method, params);
  ThrowUnlessSent(sent);
}

void TaskClient::ThrowUnlessSent(size_t sent_before) const {
  if (state_->sent == sent_before) throw CommandError(kFailed, "the message is too large");
}

std::deque<Message::Notification> TaskClient::TakeNotifications() {
  return std::exchange(state_->notifications, {});
}

}  // namespace tools
