#include "wrapper/manager_wrapper.h"

#include <utility>

#include "cw/plugin_registrar.h"
#include "forge/library.h"
#include "wrapper/rpc_client.h"
#include "wrapper/rpc_server.h"

namespace tavo {
namespace {

using TopApi = forge::LibraryApi<TAVOProcTable>;

std::unique_ptr<TopApi> LoadTopTable(const std::filesystem::path& path) {
  const auto library = forge::Library::Create(path);
  if (!library) return nullptr;
  return TopApi::Create(library, library->Resolve<TopApi::Loader>("TAVOProcTableLoad"));
}

}  // namespace

ManagerWrapper::ManagerWrapper(std::shared_ptr<forge::IDispatcher> dispatcher,
                               std::unique_ptr<TopApi> table, _TAVOManagerRef* manager, PrivateTag)
    : dispatcher_(std::move(dispatcher)), table_(std::move(table)), manager_(manager) {}

ManagerWrapper::~ManagerWrapper() {
  if (forge::Set(table_->Get(), &TAVOProcTable::Release)) table_->Get().Release(manager_);
}

std::unique_ptr<ManagerWrapper> ManagerWrapper::Create(cw::PluginRegistrar* registrar) {
  if (!registrar || !registrar->GetApplication()) return nullptr;
  return Create(registrar->GetApplication(), registrar->GetLibraryPath());
}

std::unique_ptr<ManagerWrapper> ManagerWrapper::Create(
    const std::shared_ptr<forge::IDispatcher>& dispatcher, const std::filesystem::path& directory) {
  auto table = LoadTopTable(directory / "libtavo.so");
  if (!table) return nullptr;
  if (!FORGE_COVERED_OR_LOG(table->Get(), Initialize)) return nullptr;
  _TAVOManagerRef* const manager = table->Get().Initialize();
  if (!manager) return nullptr;
  return std::make_unique<ManagerWrapper>(dispatcher, std::move(table), manager, PrivateTag{});
}

// Binds the table before it calls the service, unlike the two below; the order is kept on purpose.
std::unique_ptr<IntentManager> ManagerWrapper::GetIntentManager() {
  const TAVOProcTable& top = table_->Get();
  if (!FORGE_COVERED_OR_LOG(top, IntentManagerProcTableLoad)) return nullptr;
  if (!FORGE_SET_OR_LOG(top, GetIntentManager)) return nullptr;
  auto table = forge::LibraryApi<TAVOIntentManagerProcTable>::Create(
      table_->GetLibrary(), top.IntentManagerProcTableLoad);
  if (!table) return nullptr;
  return IntentManager::Create(std::move(table), top.GetIntentManager(manager_));
}

std::shared_ptr<flrpc::IClient> ManagerWrapper::CreateIpcClient(const std::string& name) const {
  const TAVOProcTable& top = table_->Get();
  if (!FORGE_COVERED_OR_LOG(top, CreateRpcClient)) return nullptr;
  if (!FORGE_COVERED_OR_LOG(top, RpcClientProcTableLoad)) return nullptr;
  _TAVORpcClientRef* const client = top.CreateRpcClient(manager_);
  if (!client) return nullptr;
  return RpcClient::Create(dispatcher_, name,
                           forge::LibraryApi<TAVORpcClientProcTable>::Create(
                               table_->GetLibrary(), top.RpcClientProcTableLoad),
                           client);
}

std::shared_ptr<flrpc::IServer> ManagerWrapper::CreateRpcServer() const {
  const TAVOProcTable& top = table_->Get();
  if (!FORGE_COVERED_OR_LOG(top, GetRpcServer)) return nullptr;
  if (!FORGE_COVERED_OR_LOG(top, RpcServerProcTableLoad)) return nullptr;
  _TAVORpcServerRef* const server = top.GetRpcServer(manager_);
  if (!server) return nullptr;
  return RpcServer::Create(dispatcher_,
                           forge::LibraryApi<TAVORpcServerProcTable>::Create(
                               table_->GetLibrary(), top.RpcServerProcTableLoad),
                           server);
}

}  // namespace tavo
