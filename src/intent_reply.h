// One invocation of a registered intent, as the C caller answers it. The context that the caller
// holds is a handle: if it is used late or after its release, it resolves to nothing.
//
// Threads: any; the platform's reply function is called on the caller's thread, without a lock.
#pragma once

#include <memory>

#include <QJsonObject>

#include "forge/object.h"
#include "platform/runtime_manager/runtime_dispatcher.h"
#include "src/tavo_capi.h"

namespace tavo::details {

class IntentReply final : public forge::Object<IntentReply, void*> {
  struct PrivateTag {
    explicit PrivateTag() = default;
  };

 public:
  using Function = RuntimeManager::RuntimeDispatcher::IntentReply;

  IntentReply(Function function, PrivateTag);

  // Makes the slot of a new invocation, which stays open until the slot's `release` is called.
  static TAVOReplyIntentSlot Open(Function function);

 private:
  static void HandleReply(void* context, const uint8_t* data, unsigned int length);
  static void HandleRelease(void* context);

  void Answer(const uint8_t* data, unsigned int length) const;

  const Function function_;
  std::shared_ptr<IntentReply> self_;  // Set while it is open; accessed only by std::atomic_store.
};

}  // namespace tavo::details
