// The callbacks of whoever serves the application's socket.
#pragma once

#include <memory>

#include "src/slot_holder.h"
#include "src/tavo_capi.h"

namespace tavo {

class RpcServerListener final : public details::SlotHolder<TAVORpcServerSlots> {
  struct PrivateTag {
    explicit PrivateTag() = default;
  };

 public:
  RpcServerListener(const TAVORpcServerSlots* slots, PrivateTag) : SlotHolder(slots) {}

  // Null slots: no callback is there.
  static std::shared_ptr<RpcServerListener> Create(const TAVORpcServerSlots* slots) {
    return std::make_shared<RpcServerListener>(slots, PrivateTag{});
  }
};

}  // namespace tavo
