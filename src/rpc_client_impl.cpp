#include "src/rpc_client_impl.h"

#include <exception>
#include <map>
#include <memory>
#include <mutex>
#include <utility>

#include <QString>
#include <QStringList>

#include "forge/logger.h"
#include "src/border.h"
#include "src/qt_ownership.h"

namespace tavo {
namespace {

constexpr int kInternalError = -32603;  // The code of JSON-RPC.

// The clients whose tasks are being stopped; each lives until its task has stopped. The platform's
// callback does not own the client: if an ending event loop destroys the callback, the client and
// its Qt objects must not be destroyed with it, because Qt holds a lock then. So the callback owns
// a ticket. A client whose ticket was destroyed is dropped when the next client is added. Clients
// that are left at the end of the process are never destroyed.
class StoppingClients {
 public:
  using Ticket = std::shared_ptr<const uint32_t>;  // The client's id.

  static StoppingClients& Get() {
    static auto& clients = *new StoppingClients;
    return clients;
  }

  Ticket Add(const std::shared_ptr<RpcClientImpl>& client) {
    auto ticket = std::make_shared<const uint32_t>(client->GetId());
    Entries abandoned;  // Destroyed after the lock was released.
    const std::lock_guard lock(mutex_);
    for (auto entry = entries_.begin(); entry != entries_.end();) {
      const auto current = entry++;
      if (current->second.ticket.expired()) abandoned.insert(entries_.extract(current));
    }
    entries_[*ticket] = {ticket, client};
    return ticket;
  }

  // Null when it was taken before.
  std::shared_ptr<RpcClientImpl> Take(uint32_t id) {
    const std::lock_guard lock(mutex_);
    const auto node = entries_.extract(id);
    return node ? node.mapped().client : nullptr;
  }

 private:
  struct Entry {
    std::weak_ptr<const uint32_t> ticket;
    std::shared_ptr<RpcClientImpl> client;
  };
  using Entries = std::map<uint32_t, Entry>;  // By the client's id.

  std::mutex mutex_;
  Entries entries_;  // Guarded by mutex_.
};

}  // namespace

RpcClientImpl::RpcClientImpl(PrivateTag) : Object(forge::IDispatcher::CreateEmpty()) {}

RpcClientImpl::~RpcClientImpl() {
  details::Fence("client destruction", [this] {
    Unregister();
    TakeStopListener();  // Dropped without a call: nobody waits for the end of a destroyed client.
    CleanupMessaging();
    CleanupTask();
    Release();
  });
}

std::shared_ptr<RpcClientImpl> RpcClientImpl::Create(
    const std::shared_ptr<StopListener>& stop_listener) {
  auto client = details::CreateOrNull([] { return Object::Create(PrivateTag{}); });
  if (!client) {
    FORGE_LOG(kError) << "Could not create Task Worker.";
    return nullptr;
  }
  client->stop_listener_ = stop_listener;
  return client;
}

ForgeResult RpcClientImpl::ProcTableLoad(TAVORpcClientProcTable* table, unsigned int size) {
  return details::FenceEntry(
      "RpcClientProcTableLoad", FORGE_RESULT_INVALID_ARGUMENT, [=]() -> ForgeResult {
        if (!table) {
          FORGE_LOG(kError) << "Null table specified.";
          return FORGE_RESULT_INVALID_ARGUMENT;
        }
        return details::FillTable(table, size,
                                  {sizeof *table, HandleStartTask, RpcUnlockResourcesImpl,
                                   HandleSendMessage, HandleRelease});
      });
}

ForgeResult RpcClientImpl::HandleStartTask(_TAVORpcClientRef* ref, const char* name,
                                           const char* libs_path, TAVORpcClientSlots* slots) {
  return details::FenceEntry("StartTask", FORGE_RESULT_WRONG_STATE, [=]() -> ForgeResult {
    const std::string name_text(details::RequireText(name));
    const std::string path_text(details::RequireText(libs_path));
    if (name_text.empty() || path_text.empty()) return FORGE_RESULT_INVALID_ARGUMENT;
    const auto client = FromRef(ref);
    if (!client) return FORGE_RESULT_INVALID_ARGUMENT;
    return client->StartTask(name_text, path_text, slots);
  });
}

void RpcClientImpl::RpcUnlockResourcesImpl(_TAVORpcClientRef* ref, unsigned int chunk_id) {
  details::Fence("UnlockResources", [=] {
    const auto client = FromRef(ref);
    if (!client || chunk_id == 0) return;
    details::TakeBack(client->cache_, chunk_id, [&client] { return client->IsReachable(); });
  });
}

ForgeResult RpcClientImpl::HandleSendMessage(_TAVORpcClientRef* ref, const char* text) {
  return details::FenceEntry("SendMessage", FORGE_RESULT_WRONG_STATE, [=]() -> ForgeResult {
    const auto client = FromRef(ref);
    if (!client || !text) return FORGE_RESULT_WRONG_STATE;
    return client->SendMessage(text) ? FORGE_RESULT_OK : FORGE_RESULT_WRONG_STATE;
  });
}

void RpcClientImpl::HandleRelease(_TAVORpcClientRef* ref) {
  details::Fence("Release", [=] {
    const auto client = FromRef(ref);
    if (!client) return;
    client->Unregister();
    client->Release();
  });
}

bool RpcClientImpl::IsReachable() const { return FromRef(GetRef()).get() == this; }

bool RpcClientImpl::Move(State from, State to) {
  uint32_t expected = from;
  return state_.compare_exchange_strong(expected, to);
}

ForgeResult RpcClientImpl::StartTask(const std::string& name, const std::string& libs_path,
                                     const TAVORpcClientSlots* slots) {
  if (!Move(kIdle, kStarting)) return FORGE_RESULT_WRONG_STATE;
  try {
    slots_ = RpcClientListener::Create(slots);
    LaunchTask(name, libs_path);
  } catch (...) {
    AbandonStart();
    throw;
  }
  return FORGE_RESULT_OK;
}

void RpcClientImpl::LaunchTask(const std::string& name, const std::string& libs_path) {
  task_ = details::MakeQtShared<RuntimeManager::Task>(QString::fromStdString(name), nullptr);
  task_->withIpcSocket(true);
  task_->withArguments({QStringLiteral("--libs-path"), QString::fromStdString(libs_path)});
  task_->start([weak = weak_from_this()](const RuntimeManager::Error& error) {
    details::Fence("start callback", [&weak, &error] {
      if (const auto client = weak.lock()) client->OnTaskStarted(error);
    });
  });
}

void RpcClientImpl::AbandonStart() {
  // The result tells the caller of the failure, and the caller keeps its slots.
  if (slots_) slots_->Forget();
  slots_.reset();
  CleanupTask();
  state_ = kIdle;
}

void RpcClientImpl::OnTaskStarted(const RuntimeManager::Error& error) {
  if (error) {
    if (Move(kStarting, kStopped)) OnTaskFailed(error.message().toUtf8().constData());
    return;
  }
  if (!Move(kStarting, kRunning)) return;
  try {
    OpenChannel();
  } catch (const std::exception& exception) {  // A task without a channel counts as failed.
    DropChannel();
    if (!Move(kRunning, kStopped)) return;
    CleanupTask();
    OnTaskFailed(exception.what());
  }
}

// The caller is told in any case. Without a chunk the text is borrowed until the callback returns.
void RpcClientImpl::OnTaskFailed(const char* message) {
  const auto slots = slots_;
  const auto log = [message] { FORGE_LOG(kInfo) << "[ta-vo] on started call error: " << message; };
  bool is_told = false;
  if (slots->HasOnStarted()) {
    details::Fence("start callback", [&] {
      const auto tell = [&](const char* text, uint32_t chunk_id) {
        details::Fence("start callback", log);
        is_told = true;
        slots->OnStarted(kInternalError, text, chunk_id);
      };
      details::LendText(cache_, message, tell, [this] { return IsReachable(); });
    });
  }
  if (is_told) return;
  details::Fence("start callback", log);
  slots->OnStarted(kInternalError, message, 0);
}

void RpcClientImpl::OpenChannel() {
  const auto slots = slots_;
  const auto channel = std::make_shared<details::MessageChannel>(
      details::MakeQtShared<RuntimeManager::TaskMessaging>(task_->socketPath(), nullptr),
      [weak = weak_from_this()](std::string&& text) {
        if (const auto client = weak.lock()) client->OnMessageReceived(std::move(text));
      });
  std::atomic_store(&channel_, channel);
  // Release may have come from another thread before there was a channel to take down.
  if (state_ != kRunning) return DropChannel();
  slots->OnStarted(0, "", 0);
}

bool RpcClientImpl::SendMessage(std::string_view text) {
  const auto channel = std::atomic_load(&channel_);
  if (!channel) return false;
  channel->Send(text);
  return true;
}

void RpcClientImpl::OnMessageReceived(std::string&& text) {
  const auto slots = slots_;  // Keeps the slots alive until the callback returns.
  details::DeliverText(cache_, slots, std::move(text), [this] { return IsReachable(); });
}

void RpcClientImpl::Release() {
  if (!Move(kRunning, kStopping)) return;
  CleanupMessaging();
  if (!task_) return OnStop();
  try {
    const auto ticket = StoppingClients::Get().Add(shared_from_this());
    task_->stop({}, [ticket](const RuntimeManager::Error& error) {
      const auto stopped = StoppingClients::Get().Take(*ticket);
      if (!stopped) return;
      details::Fence("stop callback", [&error] {
        if (error) FORGE_LOG(kError) << "[ta-vo] stop error: " << error.message().toStdString();
      });
      details::Fence("stop callback", [&stopped] { stopped->OnStop(); });
    });
  } catch (...) {  // There will be no callback, so the client and its task end here.
    StoppingClients::Get().Take(GetId());
    OnStop();
    throw;
  }
}

void RpcClientImpl::OnStop() {
  state_ = kStopped;
  if (const auto listener = TakeStopListener()) listener->InvokeOnce(GetRef());
}

std::shared_ptr<RpcClientImpl::StopListener> RpcClientImpl::TakeStopListener() {
  return std::exchange(stop_listener_, nullptr);
}

void RpcClientImpl::CleanupMessaging() {
  if (const auto slots = slots_) slots->OnDisconnect(0, "", 0);
  DropChannel();
}

void RpcClientImpl::CleanupTask() {
  if (!task_) return;
  task_->disconnect();
  task_.reset();
}

void RpcClientImpl::DropChannel() {
  const auto channel = std::atomic_exchange(&channel_, {});
  if (channel) channel->Close();
}

}  // namespace tavo
