// A caller's one callback, copied: what OpenUri and RegisterIntent are given.
//
// Threads: Invoke on any; the last owner's thread releases.
// Errors:  whatever the callback or the release function throws ends here as an error line.
#pragma once

#include "src/border.h"

namespace tavo::details {

template <typename Slot>
class CallbackSlot {
 public:
  explicit CallbackSlot(const Slot* slot) : slot_(CopySlots(slot)) {}
  ~CallbackSlot() {
    if (slot_.release) Fence("slot release", [this] { slot_.release(slot_.user_data); });
  }
  CallbackSlot(const CallbackSlot&) = delete;
  CallbackSlot& operator=(const CallbackSlot&) = delete;

  bool HasCallback() const { return slot_.callback != nullptr; }

  // False when there is no callback, or when it threw.
  template <typename... Args>
  bool Invoke(Args... args) const {
    bool returned = false;
    if (slot_.callback) {
      Fence("slot callback", [&] {
        slot_.callback(slot_.user_data, args...);
        returned = true;
      });
    }
    return returned;
  }

  // Runs what hands the slot over to its new owner. If that fails the slot stays its caller's: it
  // is never released.
  template <typename Body>
  void HandOver(Body&& body) {
    try {
      body();
    } catch (...) {
      slot_ = Slot{};
      throw;
    }
  }

 private:
  Slot slot_;
};

}  // namespace tavo::details
