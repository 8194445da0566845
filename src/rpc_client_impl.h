// The service's half of an RPC client: it starts a task, carries texts to and from it, and stops
// it.
//
// States: idle -StartTask-> starting -started-> running -Release-> stopping -stopped-> stopped;
//         starting -failed-> stopped. Transitions are compare-and-swap: the thread that makes a
//         transition does the work of the step; all others do nothing.
// Threads: the entries run on the caller's thread, the platform's callbacks on the event loop. The
//          slots and the task are stored before the state becomes running, and other threads read
//          them only afterwards. Any thread may take the channel down, so it is loaded atomically.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "forge/object.h"
#include "forge/resources_cache.h"
#include "forge/signals.h"
#include "platform/runtime_manager/error.h"
#include "platform/runtime_manager/task.h"
#include "src/lent_text.h"
#include "src/message_channel.h"
#include "src/rpc_client_listener.h"
#include "src/tavo_capi.h"

namespace tavo {

class RpcClientImpl final : public forge::Object<RpcClientImpl, _TAVORpcClientRef*> {
  struct PrivateTag {
    explicit PrivateTag() = default;
  };

 public:
  using StopListener = forge::IListener<_TAVORpcClientRef*>;

  explicit RpcClientImpl(PrivateTag);
  ~RpcClientImpl() override;

  // The listener is called once, with the client's handle, when the client has stopped. It is not
  // called when the client is destroyed before. Null (and an error line) on failure.
  static std::shared_ptr<RpcClientImpl> Create(const std::shared_ptr<StopListener>& stop_listener);

  // The entries of the client table. The C header has their contracts.
  static ForgeResult HandleStartTask(_TAVORpcClientRef* ref, const char* name,
                                     const char* libs_path, TAVORpcClientSlots* slots);
  static void RpcUnlockResourcesImpl(_TAVORpcClientRef* ref, unsigned int chunk_id);
  static ForgeResult HandleSendMessage(_TAVORpcClientRef* ref, const char* text);
  static void HandleRelease(_TAVORpcClientRef* ref);

  static ForgeResult ProcTableLoad(TAVORpcClientProcTable* table, unsigned int size);

 private:
  enum State : uint32_t { kIdle = 0, kStarting = 1, kRunning = 2, kStopping = 3, kStopped = 4 };

  bool IsReachable() const;  // Returns whether the handle still resolves to this object.
  bool Move(State from, State to);

  ForgeResult StartTask(const std::string& name, const std::string& libs_path,
                        const TAVORpcClientSlots* slots);
  void LaunchTask(const std::string& name, const std::string& libs_path);
  void AbandonStart();
  void OnTaskStarted(const RuntimeManager::Error& error);
  void OnTaskFailed(const char* message);
  void OpenChannel();

  bool SendMessage(std::string_view text);
  void OnMessageReceived(std::string&& text);

  void Release();
  void OnStop();
  std::shared_ptr<StopListener> TakeStopListener();
  void CleanupMessaging();
  void CleanupTask();
  void DropChannel();

  forge::ResourcesCache cache_;
  std::shared_ptr<RuntimeManager::Task> task_;
  std::shared_ptr<details::MessageChannel> channel_;  // Accessed only by the atomic free functions.
  std::shared_ptr<RpcClientListener> slots_;
  std::atomic<uint32_t> state_{kIdle};
  std::shared_ptr<StopListener> stop_listener_;
};

}  // namespace tavo
