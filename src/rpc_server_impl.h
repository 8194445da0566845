// The service's half of an RPC server: it serves the socket that the application was started with.
//
// Threads: the event loop's for Run, where messages arrive; any for the other entries. The channel
//          is loaded atomically. The message handler holds the handle, not the server, and resolves
//          it at each message: a late message finds nothing.
#pragma once

#include <memory>
#include <string>

#include "forge/object.h"
#include "forge/resources_cache.h"
#include "src/lent_text.h"
#include "src/message_channel.h"
#include "src/rpc_server_listener.h"
#include "src/tavo_capi.h"

namespace tavo {

class RpcServerImpl final : public forge::Object<RpcServerImpl, _TAVORpcServerRef*> {
  struct PrivateTag {
    explicit PrivateTag() = default;
  };

 public:
  explicit RpcServerImpl(PrivateTag);
  ~RpcServerImpl() override;

  // Null on failure.
  static std::shared_ptr<RpcServerImpl> Create();

  // The entries of the server table. The C header has their contracts.
  static void HandleRun(_TAVORpcServerRef* ref, TAVORpcServerSlots* slots);
  static void HandleUnlockResources(_TAVORpcServerRef* ref, unsigned int chunk_id);
  static ForgeResult HandleSendMessage(_TAVORpcServerRef* ref, const char* text);

  static ForgeResult ProcTableLoad(TAVORpcServerProcTable* table, unsigned int size);

 private:
  bool IsReachable() const;  // Returns whether the handle still resolves to this object.
  void Run(const TAVORpcServerSlots* slots);
  void OpenChannel();
  void OnMessageReceived(std::string&& text);

  forge::ResourcesCache cache_;
  std::shared_ptr<RpcServerListener> slots_;
  std::shared_ptr<details::MessageChannel> channel_;  // Accessed only by the atomic free functions.
};

}  // namespace tavo
