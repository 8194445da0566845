// The only owner of a C slot's content: it holds a copy of the slot structure and releases it
// exactly once. The slot's callbacks and its release function take its `user_data`.
//
//   const forge::SlotOwner<TAVOOpenUriSlot> owner(*slot);
//   owner.Call(&TAVOOpenUriSlot::callback, true);  // The destructor calls slot->release.
//
// Threads:   Call may run on several threads; Release, Forget, the move and the destructor may not
//            run at the same time as any other operation.
// Ownership: the structure itself is borrowed by the constructor only. Its `user_data` is the
//            owner's from then on, until Release or Forget.
// Errors:    an exception of a callback or of the release function leaves the call; in the
//            destructor it ends the process.
#pragma once

#include <utility>

namespace forge {

// `kRelease` names the structure's release function. Every function of the structure may be null.
template <typename Slot, auto kRelease = &Slot::release>
class SlotOwner {
 public:
  explicit SlotOwner(const Slot& slot) : slot_(slot) {}
  SlotOwner(SlotOwner&& other) noexcept : slot_(std::exchange(other.slot_, Slot{})) {}
  ~SlotOwner() { Release(); }

  // Returns whether the slot has this callback.
  template <typename... Parameters>
  bool Has(void (*Slot::*callback)(void*, Parameters...)) const {
    return slot_.*callback != nullptr;
  }

  // Calls the callback with the slot's `user_data`. False when the slot has no such callback. The
  // callback may destroy this object.
  template <typename... Parameters, typename... Args>
  bool Call(void (*Slot::*callback)(void*, Parameters...), Args&&... args) const {
    const auto function = slot_.*callback;
    if (function) function(slot_.user_data, std::forward<Args>(args)...);
    return function != nullptr;
  }

  // Calls the release function. Only the first call has an effect, and no callback is called after
  // it: the copy is cleared before the release function runs.
  void Release() {
    const Slot last = std::exchange(slot_, Slot{});
    if (last.*kRelease) (last.*kRelease)(last.user_data);
  }

  // Gives the slot up without a release: it stays with the caller that has made it.
  void Forget() { slot_ = Slot{}; }

 private:
  Slot slot_;
};

}  // namespace forge
