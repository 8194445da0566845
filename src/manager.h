// The only manager of the process. It owns the services that the top table hands out.
//
// Threads: the fields have no lock. The caller keeps Initialize, Release, the getters and
//          CreateRpcClient on one thread, and clients stop on that thread, too.
#pragma once

#include <list>
#include <memory>

#include "forge/object.h"
#include "src/intent_manager_impl.h"
#include "src/rpc_client_impl.h"
#include "src/rpc_server_impl.h"
#include "src/tavo_capi.h"

namespace tavo::details {

class Manager final : public forge::Object<Manager, _TAVOManagerRef*> {
  struct PrivateTag {
    explicit PrivateTag() = default;
  };

 public:
  explicit Manager(PrivateTag);
  ~Manager() override;

  // The entries of the top table. The C header has their contracts.
  static _TAVOManagerRef* HandleInitialize();
  static void HandleRelease(_TAVOManagerRef* ref);
  static _TAVOIntentManagerRef* HandleGetIntentManager(_TAVOManagerRef* ref);
  static _TAVORpcClientRef* HandleCreateRpcClient(_TAVOManagerRef* ref);
  static _TAVORpcServerRef* HandleGetRpcServer(_TAVOManagerRef* ref);

 private:
  // Null (and an error line) on failure.
  static std::shared_ptr<Manager> Create();

  void Release();
  _TAVORpcClientRef* CreateRpcClient();
  void RemoveClient(_TAVORpcClientRef* client);
  _TAVORpcServerRef* GetRpcServer();
  _TAVOIntentManagerRef* GetIntentManager();

  std::list<std::shared_ptr<RpcClientImpl>> clients_;  // In the order of their creation.
  std::shared_ptr<RpcServerImpl> server_;              // Null until it is asked for.
  std::shared_ptr<IntentManagerImpl> intents_;         // Null until it is asked for.
};

}  // namespace tavo::details
