#include "src/rpc_server_impl.h"

#include <utility>

#include "forge/logger.h"
#include "platform/runtime_manager/runtime_dispatcher.h"
#include "src/border.h"
#include "src/qt_ownership.h"

namespace tavo {

RpcServerImpl::RpcServerImpl(PrivateTag) : Object(forge::IDispatcher::CreateEmpty()) {}

RpcServerImpl::~RpcServerImpl() {
  details::Fence("server destruction", [this] {
    Unregister();
    const auto channel = std::atomic_exchange(&channel_, {});
    if (channel) channel->Close();
  });
}

std::shared_ptr<RpcServerImpl> RpcServerImpl::Create() {
  return details::CreateOrNull([] { return Object::Create(PrivateTag{}); });
}

ForgeResult RpcServerImpl::ProcTableLoad(TAVORpcServerProcTable* table, unsigned int size) {
  return details::FenceEntry(
      "RpcServerProcTableLoad", FORGE_RESULT_INVALID_ARGUMENT, [=]() -> ForgeResult {
        if (!table) {
          FORGE_LOG(kError) << "Null table specified.";
          return FORGE_RESULT_INVALID_ARGUMENT;
        }
        return details::FillTable(
            table, size, {sizeof *table, HandleRun, HandleUnlockResources, HandleSendMessage});
      });
}

void RpcServerImpl::HandleRun(_TAVORpcServerRef* ref, TAVORpcServerSlots* slots) {
  details::Fence("Run", [=] {
    if (const auto server = FromRef(ref)) server->Run(slots);
  });
}

void RpcServerImpl::HandleUnlockResources(_TAVORpcServerRef* ref, unsigned int chunk_id) {
  details::Fence("UnlockResources", [=] {
    const auto server = FromRef(ref);
    if (!server) return;
    details::TakeBack(server->cache_, chunk_id, [&server] { return server->IsReachable(); });
  });
}

ForgeResult RpcServerImpl::HandleSendMessage(_TAVORpcServerRef* ref, const char* text) {
  return details::FenceEntry("SendMessage", FORGE_RESULT_WRONG_STATE, [=]() -> ForgeResult {
    const auto server = FromRef(ref);
    const auto channel = server ? std::atomic_load(&server->channel_) : nullptr;
    if (!channel) return FORGE_RESULT_WRONG_STATE;
    channel->Send(details::RequireText(text));
    return FORGE_RESULT_OK;
  });
}

bool RpcServerImpl::IsReachable() const { return FromRef(GetRef()).get() == this; }

void RpcServerImpl::Run(const TAVORpcServerSlots* slots) {
  if (std::atomic_load(&channel_)) return;  // The first Run wins.
  const auto listener = RpcServerListener::Create(slots);
  slots_ = listener;
  try {
    OpenChannel();
  } catch (...) {  // The caller keeps its slots, and may try again.
    listener->Forget();
    slots_.reset();
    throw;
  }
  listener->OnStarted(0, "", 0);
}

void RpcServerImpl::OpenChannel() {
  const auto channel = std::make_shared<details::MessageChannel>(
      details::MakeQtShared<RuntimeManager::TaskMessaging>(
          RuntimeManager::RuntimeDispatcher::instance()->localServerSocket(), nullptr),
      [ref = GetRef()](std::string&& text) {
        if (const auto server = FromRef(ref)) server->OnMessageReceived(std::move(text));
      });
  std::atomic_store(&channel_, channel);
}

void RpcServerImpl::OnMessageReceived(std::string&& text) {
  const auto slots = slots_;  // Keeps the slots alive until the callback returns.
  details::DeliverText(cache_, slots, std::move(text), [this] { return IsReachable(); });
}

}  // namespace tavo
