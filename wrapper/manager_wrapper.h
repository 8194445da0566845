// A plug-in's entry into the system: it loads libtavo.so from the application's library directory
// and makes what the plug-in holds.
//
//   const auto manager = tavo::ManagerWrapper::Create(registrar);
//   const auto client = manager ? manager->CreateIpcClient("digest") : nullptr;
//   if (!client) return;
//   client->OnConnected([](const auto& error) { ... });
//   client->Run();
//
// What it makes may outlive it: the library stays loaded. But its end ends the service for the
// whole process, whoever else uses it: clients are told of the disconnect, and their calls do
// nothing from then on.
//
// Threads: the event loop's; clients and servers may be used on any (flrpc/client.h).
// Errors:  null, with an error line that says why; without one only for a null registrar, one that
//          has no application, and what the service has reported by itself.
#pragma once

#include <filesystem>
#include <memory>
#include <string>

#include "flrpc/client.h"
#include "flrpc/server.h"
#include "forge/dispatcher.h"
#include "forge/export.h"
#include "forge/library_api.h"
#include "src/tavo_capi.h"
#include "wrapper/intent_manager.h"

namespace cw {
class PluginRegistrar;
}  // namespace cw

namespace tavo {

class FORGE_EXPORT ManagerWrapper {
  struct PrivateTag {
    explicit PrivateTag() = default;
  };

 public:
  ManagerWrapper(std::shared_ptr<forge::IDispatcher> dispatcher,
                 std::unique_ptr<forge::LibraryApi<TAVOProcTable>> table, _TAVOManagerRef* manager,
                 PrivateTag);
  ~ManagerWrapper();
  ManagerWrapper(const ManagerWrapper&) = delete;
  ManagerWrapper& operator=(const ManagerWrapper&) = delete;

  // With the registrar's application as the dispatcher, and the library of its directory.
  static std::unique_ptr<ManagerWrapper> Create(cw::PluginRegistrar* registrar);

  // Loads libtavo.so from the directory. The dispatcher is kept for what is made here; nothing is
  // called through it so far.
  static std::unique_ptr<ManagerWrapper> Create(
      const std::shared_ptr<forge::IDispatcher>& dispatcher,
      const std::filesystem::path& directory);

  std::unique_ptr<IntentManager> GetIntentManager();

  // Starts the application of that name as a task, and talks to it. The task ends with the client.
  // (Where it gives null after the service has made a client, that one stays idle until this ends.)
  std::shared_ptr<flrpc::IClient> CreateIpcClient(const std::string& name) const;

  // Answers whoever started this application as a task. Serve once, with one server.
  std::shared_ptr<flrpc::IServer> CreateRpcServer() const;

 private:
  const std::shared_ptr<forge::IDispatcher> dispatcher_;
  const std::unique_ptr<forge::LibraryApi<TAVOProcTable>> table_;
  _TAVOManagerRef* const manager_;  // Never null.
};

}  // namespace tavo
