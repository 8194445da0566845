// The callbacks of the C caller that uses a task client.
#pragma once

#include <memory>

#include "src/slot_holder.h"
#include "src/tavo_capi.h"

namespace tavo {

class RpcClientListener final
    : public details::SlotHolder<TAVORpcClientSlots, &TAVORpcClientSlots::Release> {
  struct PrivateTag {
    explicit PrivateTag() = default;
  };

 public:
  RpcClientListener(const TAVORpcClientSlots* slots, PrivateTag)
      : SlotHolder(slots, "Release slot") {}

  // Null slots have no callbacks.
  static std::shared_ptr<RpcClientListener> Create(const TAVORpcClientSlots* slots) {
    return std::make_shared<RpcClientListener>(slots, PrivateTag{});
  }

  bool HasOnStarted() const { return Has(&TAVORpcClientSlots::OnStarted); }
  bool HasOnMessage() const { return Has(&TAVORpcClientSlots::OnMessage); }

  void OnStarted(int code, const char* text, unsigned int chunk_id) const {
    Call("OnStarted", &TAVORpcClientSlots::OnStarted, code, text, chunk_id);
  }

  void OnMessage(const char* text, unsigned int chunk_id) const {
    Call("OnMessage", &TAVORpcClientSlots::OnMessage, text, chunk_id);
  }

  void OnDisconnect(int code, const char* text, unsigned int chunk_id) const {
    Call("OnDisconnect", &TAVORpcClientSlots::OnDisconnect, code, text, chunk_id);
  }
};

}  // namespace tavo
