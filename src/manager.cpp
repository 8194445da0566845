#include "src/manager.h"

#include <utility>

#include "forge/logger.h"
#include "forge/signals.h"
#include "src/border.h"

namespace tavo::details {

Manager::Manager(PrivateTag) : Object(forge::IDispatcher::CreateEmpty()) {}

Manager::~Manager() {
  Fence("manager destruction", [this] { Release(); });  // In the order of Release.
}

std::shared_ptr<Manager> Manager::Create() {
  auto manager = CreateOrNull([] { return Object::Create(PrivateTag{}); });
  if (!manager) FORGE_LOG(kError) << "Could not create Runtime Manager on API side.";
  return manager;
}

_TAVOManagerRef* Manager::HandleInitialize() {
  _TAVOManagerRef* ref = nullptr;
  Fence("Initialize", [&ref] {
    static const std::shared_ptr<Manager> manager = Create();
    // Kept separately: the manager may be destroyed already when this is called at the exit.
    static _TAVOManagerRef* const manager_ref = manager ? manager->GetRef() : nullptr;
    ref = manager_ref;
  });
  return ref;
}

void Manager::HandleRelease(_TAVOManagerRef* ref) {
  Fence("Release", [ref] {
    if (const auto manager = FromRef(ref)) manager->Release();
  });
}

_TAVOIntentManagerRef* Manager::HandleGetIntentManager(_TAVOManagerRef* ref) {
  _TAVOIntentManagerRef* intents = nullptr;
  Fence("GetIntentManager", [ref, &intents] {
    const auto manager = FromRef(ref);
    if (!manager) {
      FORGE_LOG(kError) << "Runtime Manager is not initialized.";
      return;
    }
    intents = manager->GetIntentManager();
  });
  return intents;
}

_TAVORpcClientRef* Manager::HandleCreateRpcClient(_TAVOManagerRef* ref) {
  _TAVORpcClientRef* client = nullptr;
  Fence("CreateRpcClient", [ref, &client] {
    const auto manager = FromRef(ref);
    if (!manager) {
      FORGE_LOG(kError) << "Runtime Manager is not initialized.";
      return;
    }
    client = manager->CreateRpcClient();
  });
  return client;
}

_TAVORpcServerRef* Manager::HandleGetRpcServer(_TAVOManagerRef* ref) {
  _TAVORpcServerRef* server = nullptr;
  Fence("GetRpcServer", [ref, &server] {
    if (const auto manager = FromRef(ref)) server = manager->GetRpcServer();
  });
  return server;
}

void Manager::Release() {
  // Moved out of the members first, because callbacks of dropped objects may call this manager.
  auto clients = std::exchange(clients_, {});
  auto server = std::exchange(server_, nullptr);
  auto intents = std::exchange(intents_, nullptr);
  while (!clients.empty()) clients.pop_front();
  server.reset();
  if (intents) intents->Close();
}

_TAVORpcClientRef* Manager::CreateRpcClient() {
  const auto listener = std::make_shared<forge::CppStyleListener<_TAVORpcClientRef*>>(
      [ref = GetRef()](_TAVORpcClientRef* client) {
        if (const auto manager = FromRef(ref)) manager->RemoveClient(client);
      });
  const auto client = RpcClientImpl::Create(listener);
  if (!client) {
    FORGE_LOG(kError) << "Could not create Task Worker on API side.";
    return nullptr;
  }
  clients_.push_back(client);
  return client->GetRef();
}

void Manager::RemoveClient(_TAVORpcClientRef* client) {
  clients_.remove_if([client](const auto& entry) { return entry->GetRef() == client; });
}

_TAVORpcServerRef* Manager::GetRpcServer() {
  if (!server_) server_ = RpcServerImpl::Create();
  return server_ ? server_->GetRef() : nullptr;
}

_TAVOIntentManagerRef* Manager::GetIntentManager() {
  if (!intents_) intents_ = IntentManagerImpl::Create();
  if (!intents_) {
    FORGE_LOG(kError) << "Could not create Intent Manager on API side.";
    return nullptr;
  }
  return intents_->GetRef();
}

}  // namespace tavo::details
