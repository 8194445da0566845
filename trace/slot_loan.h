// A caller's slots on their way to the real library: it gets slots of ours, whose callbacks tell a
// listener first and then call the caller's.
//
//   SlotLoan<Listener> loan(slots, handle, name);
//   const ForgeResult result = real_entry(handle, loan.Get());
//   if (result == FORGE_RESULT_OK) loan.Keep();
//
// Slots that the real library has taken over live until it calls their release function, the last
// call: that calls the caller's and destroys the listener. Others are destroyed with the loan.
//
// A listener has
//   Slots, kCallbacks, kRelease    the structure, its callbacks, its release function
//   On(Callback<kCallback>, args)  for each callback, called before the caller's
//   Drop(args)                     gives back what the caller has no callback for
//   OnRelease()                    called before the caller's release function
// none of which may throw, and a constructor with the further arguments of the loan's.
//
// Threads: a loan is its thread's; callbacks come as the real library calls them.
// Errors:  without memory the real library gets the caller's slots, so nothing is recorded.
#pragma once

#include <exception>
#include <memory>
#include <utility>

#include "forge/proc_table.h"

namespace trace {

// Names a callback of a slot structure in an overload.
template <auto kCallback>
struct Callback {};

template <auto... kValues>
struct Callbacks {};

// What the real library has as `user_data`.
template <typename Listener>
class LentSlots {
  using Slots = typename Listener::Slots;

 public:
  template <typename... Args>
  explicit LentSlots(const Slots* caller, Args&&... args)
      : caller_(forge::CopyCovered(caller)), listener_(std::forward<Args>(args)...) {}

  Listener& GetListener() { return listener_; }

  // The slots to hand on. `self` keeps this object until Return.
  Slots Lend(std::shared_ptr<LentSlots> self) {
    self_ = std::move(self);
    Slots slots{};
    slots.size = sizeof slots;
    SetCallbacks(&slots, typename Listener::kCallbacks{});
    slots.*Listener::kRelease = HandleRelease;
    slots.user_data = this;
    return slots;
  }

  void Return() { self_.reset(); }

 private:
  template <auto... kCallbacks>
  static void SetCallbacks(Slots* slots, Callbacks<kCallbacks...>) {
    ((slots->*kCallbacks = MakeCallback<kCallbacks>(kCallbacks)), ...);
  }

  template <auto kCallback, typename... Args>
  static auto MakeCallback(void (*Slots::*)(void*, Args...)) {
    return +[](void* data, Args... args) {
      auto& lent = *static_cast<LentSlots*>(data);
      lent.listener_.On(Callback<kCallback>{}, args...);
      const auto callback = lent.caller_.*kCallback;
      if (!callback) return lent.listener_.Drop(args...);
      callback(lent.caller_.user_data, args...);  // It may destroy these slots.
    };
  }

  static void HandleRelease(void* data) {
    const auto self = std::move(static_cast<LentSlots*>(data)->self_);
    self->listener_.OnRelease();
    const auto release = self->caller_.*Listener::kRelease;
    if (release) release(self->caller_.user_data);
  }

  const Slots caller_;
  Listener listener_;
  std::shared_ptr<LentSlots> self_;  // Until the release function, or Return.
};

template <typename Listener>
class SlotLoan {
  using Slots = typename Listener::Slots;

 public:
  template <typename... Args>
  explicit SlotLoan(Slots* caller, Args&&... args) : caller_(caller) {
    try {
      lent_ = std::make_shared<LentSlots<Listener>>(caller, std::forward<Args>(args)...);
      slots_ = lent_->Lend(lent_);
    } catch (const std::exception&) {
    }
  }
  ~SlotLoan() {
    if (lent_ && !is_kept_) lent_->Return();
  }
  SlotLoan(const SlotLoan&) = delete;
  SlotLoan& operator=(const SlotLoan&) = delete;

  // What the real library is to be given, valid as long as the loan.
  Slots* Get() { return lent_ ? &slots_ : caller_; }

  // Null: there was no memory.
  Listener* GetListener() { return lent_ ? &lent_->GetListener() : nullptr; }

  // The real library has taken the slots over.
  void Keep() { is_kept_ = true; }

 private:
  Slots* const caller_;
  std::shared_ptr<LentSlots<Listener>> lent_;
  Slots slots_{};
  bool is_kept_ = false;
};

}  // namespace trace
