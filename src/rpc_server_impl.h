// The service's half of an RPC server: serves the socket that the application was started with.
//
// Threads: Run on the event loop's thread, where messages arrive; the other entries on any. The
//          channel is loaded atomically. The message handler holds the handle, not the server, and
//          resolves it at each message: one that arrives late finds nothing.
#pragma once

#include <memory>
#include <string>

#include <QJsonObject>

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

  // The entries of the server table; their contract is the C header's.
  static void HandleRun(_TAVORpcServerRef* ref, TAVORpcServerSlots* slots);
  static void HandleUnlockResources(_TAVORpcServerRef* ref, unsigned int chunk_id);
  static ForgeResult HandleSendMessage(_TAVORpcServerRef* ref, const char* text);

  static ForgeResult ProcTableLoad(TAVORpcServerProcTable* table, unsigned int size);

 private:
  bool IsReachable() const;  // Does the handle still lead here?
  void Run(const TAVORpcServerSlots* slots);
  void OpenChannel();
  void OnMessageReceived(const QJsonObject& message);

  forge::ResourcesCache cache_;
  std::shared_ptr<RpcServerListener> slots_;
  std::shared_ptr<details::MessageChannel> channel_;  // Only through the atomic free functions.
};

}  // namespace tavo
