// A copy of a caller's slots, as far as they are declared. Slots that were taken over are released
// once.
//
// Threads: callbacks may run on several threads; Release and Forget may not run at the same time.
// Errors:  an exception of a callback or of the release function ends here as an error line.
#pragma once

#include "forge/proc_table.h"
#include "forge/slot_owner.h"
#include "src/border.h"

namespace tavo::details {

template <typename Slots, auto kRelease = &Slots::release>
class SlotHolder {
 public:
  // Null slots have no callbacks. `release_place` names the release function in an error line.
  explicit SlotHolder(const Slots* slots, const char* release_place = "slot release")
      : owner_(forge::CopyCovered(slots)), release_place_(release_place) {}
  ~SlotHolder() { Release(); }

  template <typename Callback>
  bool Has(Callback Slots::*callback) const {
    return owner_.Has(callback);
  }

  // False when there is no such callback, or when it threw.
  template <typename Callback, typename... Args>
  bool Call(const char* place, Callback Slots::*callback, Args... args) const {
    bool returned = false;
    Fence(place, [&] { returned = owner_.Call(callback, args...); });
    return returned;
  }

  void Release() {
    Fence(release_place_, [this] { owner_.Release(); });
  }
  void Forget() { owner_.Forget(); }

  // Calls `body`, which hands the slots over to their new owner. If it throws, the slots stay with
  // the caller and are never released here.
  template <typename Body>
  void HandOver(Body&& body) {
    try {
      body();
    } catch (...) {
      Forget();
      throw;
    }
  }

 private:
  forge::SlotOwner<Slots, kRelease> owner_;
  const char* const release_place_;
};

}  // namespace tavo::details
