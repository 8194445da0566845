// A plug-in's entry to the service: it loads libtavo.so from the application's library directory
// and makes the objects that the plug-in works with.
//
//   const auto manager = tavo::ManagerWrapper::Create(registrar);
//   const auto client = manager ? manager->CreateIpcClient("digest") : nullptr;
//   if (!client) return;
//   client->OnConnected([](const auto& error) { ... });
//   client->Run();
//
// Threads:   the event loop's thread; clients and servers may be used on any (flrpc/client.h).
// Ownership: the objects that it makes may outlive it, because they keep the library loaded. But
//            its destructor releases the service for the whole process, for all its users: clients
//            are told of the disconnect, and their calls do nothing from then on.
// Errors:    null, with an error line that tells the reason. There is no line of its own for a null
//            registrar, for a registrar without an application, and for a failure that the service
//            has reported by itself.
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

// The service of the process. There should be one of these at a time.
class FORGE_EXPORT ManagerWrapper {
  struct PrivateTag {
    explicit PrivateTag() = default;
  };

 public:
  // For Create; neither the table nor the manager may be null.
  ManagerWrapper(std::shared_ptr<forge::IDispatcher> dispatcher,
                 std::unique_ptr<forge::LibraryApi<TAVOProcTable>> table, _TAVOManagerRef* manager,
                 PrivateTag);

  // Releases the service.
  ~ManagerWrapper();
  ManagerWrapper(const ManagerWrapper&) = delete;
  ManagerWrapper& operator=(const ManagerWrapper&) = delete;

  // Loads libtavo.so from the registrar's library directory. The registrar's application is the
  // dispatcher.
  static std::unique_ptr<ManagerWrapper> Create(cw::PluginRegistrar* registrar);

  // Loads libtavo.so from this directory. The dispatcher (null: none) is kept for the objects that
  // are made here; nothing is called through it so far.
  static std::unique_ptr<ManagerWrapper> Create(
      const std::shared_ptr<forge::IDispatcher>& dispatcher,
      const std::filesystem::path& directory);

  // Returns a new object over the service's intents. Null when the library or the service does not
  // provide them.
  std::unique_ptr<IntentManager> GetIntentManager();

  // Starts the application `name` as a task and returns the client that talks to it. The task ends
  // with the client. A task that cannot be started is told by OnConnected, or only by an error line
  // if the service refuses it. Null when the library does not provide clients; a client that the
  // service has made by then stays idle until this object is destroyed.
  std::shared_ptr<flrpc::IClient> CreateIpcClient(const std::string& name) const;

  // Returns the server that answers the application that has started this one as a task. Only one
  // server of a process should run. Null when the library does not provide servers.
  std::shared_ptr<flrpc::IServer> CreateRpcServer() const;

 private:
  const std::shared_ptr<forge::IDispatcher> dispatcher_;
  const std::unique_ptr<forge::LibraryApi<TAVOProcTable>> table_;
  _TAVOManagerRef* const manager_;  // Never null.
};

}  // namespace tavo
