// The one owner of what a C slot holds: a copy of the slot structure, which is released exactly
// once. Its callbacks and its release function take its `user_data`.
//
// Threads: Call on any; Release, Forget and the end may not run beside it.
// Errors:  what a callback or the release function throws leaves the call; in the destructor it
//          ends the process.
#pragma once

#include <utility>

namespace forge {

// `kRelease` is the structure's release function. Every function may be null.
template <typename Slot, auto kRelease = &Slot::release>
class SlotOwner {
 public:
  explicit SlotOwner(const Slot& slot) : slot_(slot) {}
  SlotOwner(SlotOwner&& other) noexcept : slot_(std::exchange(other.slot_, Slot{})) {}
  ~SlotOwner() { Release(); }

  template <typename... Parameters>
  bool Has(void (*Slot::*callback)(void*, Parameters...)) const {
    return slot_.*callback != nullptr;
  }

  // False when there is no such callback. The callback may destroy this.
  template <typename... Parameters, typename... Args>
  bool Call(void (*Slot::*callback)(void*, Parameters...), Args&&... args) const {
    const auto function = slot_.*callback;
    if (function) function(slot_.user_data, std::forward<Args>(args)...);
    return function != nullptr;
  }

  // Only the first call does anything, and no callback is called after it: the copy is gone before
  // the slot's maker is told.
  void Release() {
    const Slot last = std::exchange(slot_, Slot{});
    if (last.*kRelease) (last.*kRelease)(last.user_data);
  }

  // Gives the slot up unreleased: its maker never handed it over.
  void Forget() { slot_ = Slot{}; }

 private:
  Slot slot_;
};

}  // namespace forge
