// The callbacks of the C caller that serves the application's socket.
#pragma once

#include <memory>

#include "src/slot_holder.h"
#include "src/tavo_capi.h"

namespace tavo {

class RpcServerListener final
    : public details::SlotHolder<TAVORpcServerSlots, &TAVORpcServerSlots::Release> {
  struct PrivateTag {
    explicit PrivateTag() = default;
  };

 public:
  RpcServerListener(const TAVORpcServerSlots* slots, PrivateTag)
      : SlotHolder(slots, "Release slot") {}

  // Null slots have no callbacks.
  static std::shared_ptr<RpcServerListener> Create(const TAVORpcServerSlots* slots) {
    return std::make_shared<RpcServerListener>(slots, PrivateTag{});
  }

  bool HasOnMessage() const { return Has(&TAVORpcServerSlots::OnMessage); }

  void OnStarted(int code, const char* text, unsigned int chunk_id) const {
    Call("OnStarted", &TAVORpcServerSlots::OnStarted, code, text, chunk_id);
  }

  void OnMessage(const char* text, unsigned int chunk_id) const {
    Call("OnMessage", &TAVORpcServerSlots::OnMessage, text, chunk_id);
  }
};

}  // namespace tavo
