// The caller's callbacks, copied: the common part of what the client and the server hold.
//
// Threads: the callbacks may run on several threads; Release and Forget may not run beside them.
// Errors:  whatever a callback throws ends here as an error line.
#pragma once

#include <utility>

#include "src/border.h"

namespace tavo::details {

template <typename Slots>
class SlotHolder {
 public:
  explicit SlotHolder(const Slots* slots) : slots_(CopySlots(slots)) {}
  ~SlotHolder() { Release(); }
  SlotHolder(const SlotHolder&) = delete;
  SlotHolder& operator=(const SlotHolder&) = delete;

  bool HasOnStarted() const { return slots_.OnStarted != nullptr; }
  bool HasOnMessage() const { return slots_.OnMessage != nullptr; }

  void OnStarted(int code, const char* text, unsigned int chunk_id) const {
    Call("OnStarted", &Slots::OnStarted, code, text, chunk_id);
  }

  void OnMessage(const char* text, unsigned int chunk_id) const {
    Call("OnMessage", &Slots::OnMessage, text, chunk_id);
  }

  // Tells the caller that its user data is not used any more. Only the first call does anything,
  // and no callback runs after it: the copies are gone before the caller is told.
  void Release() {
    const Slots last = std::exchange(slots_, Slots{});
    if (last.Release) Fence("Release slot", [&last] { last.Release(last.user_data); });
  }

  // Gives the slots up untold: the caller never handed them over.
  void Forget() { slots_ = Slots{}; }

 protected:
  template <typename Callback, typename... Args>
  void Call(const char* name, Callback Slots::*callback, Args... args) const {
    const auto function = slots_.*callback;
    const auto user_data = slots_.user_data;
    if (function) Fence(name, [=] { function(user_data, args...); });
  }

 private:
  Slots slots_;
};

}  // namespace tavo::details
