// Listeners, signals and C slots: how callbacks reach whoever waits for them.
//
// An owner holds OwnedSignal (any number of emissions) or OwnedRunOnceSignal (at most one) and
// shows it as Signal or RunOnceSignal, through which others subscribe but cannot emit:
//
//   class Download {
//    public:
//     forge::Signal<int>& OnProgress() { return progress_; }
//     forge::RunOnceSignal<bool>& OnEnd() { return end_; }
//
//    private:
//     forge::OwnedSignal<int> progress_;     // progress_.Emit(40);
//     forge::OwnedRunOnceSignal<bool> end_;  // end_.Emit(true);
//   };
//
//   const uint32_t id = download.OnProgress().Subscribe([](int percent) { Show(percent); });
//   download.OnProgress().Unsubscribe(id);
//
// Ownership: a signal owns the callbacks that are subscribed, and drops them when it is destroyed,
//            when they are unsubscribed, and, of a run-once signal, when they have been called.
// Threads: any. Listeners run on the emitting thread, in the order of subscription, and never
//          under a lock of the signal or of the listener: a listener may subscribe, unsubscribe
//          or emit on the same signal.
// Errors:  a listener's exception leaves the emission; later listeners are not called then, and a
//          run-once signal stays emitted.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <shared_mutex>
#include <tuple>
#include <utility>
#include <vector>

#include "forge/export.h"
#include "forge/object.h"
#include "forge/slot_owner.h"

namespace forge {

// Something that can be called, whatever it is made of. Virtual operations grow only at the end.
template <typename... Args>
class FORGE_EXPORT IListener {
 public:
  virtual ~IListener() = default;

  // Calls the callback.
  virtual void Invoke(Args... args) const = 0;

  // Calls the callback for the last time and drops it; the listener is inert afterwards.
  virtual void InvokeOnce(Args... args) = 0;
};

// A listener over a C slot. It owns the slot's user data and gives it back exactly once: after
// InvokeOnce, or else when it is destroyed.
//
//   // The caller's slot is borrowed, but what it holds is this listener's from here on.
//   forge::CStyleListener<bool> listener(slot->callback, slot->release, slot->user_data);
//   listener.InvokeOnce(true);  // Calls `callback`, then `release`.
//
// Threads: not for use by several threads at once.
template <typename... Args>
class FORGE_EXPORT CStyleListener final : public IListener<Args...> {
 public:
  using CallFunction = void (*)(void* user_data, Args...);
  using ReleaseFunction = void (*)(void* user_data);

  // Both functions may be null: then nobody is called, or nothing needs to be given back.
  CStyleListener(CallFunction call, ReleaseFunction release, void* user_data);
  ~CStyleListener() override;
  CStyleListener(const CStyleListener&) = delete;
  CStyleListener& operator=(const CStyleListener&) = delete;

  void Invoke(Args... args) const override;
  void InvokeOnce(Args... args) override;

 private:
  struct Slot {
    CallFunction callback;
    ReleaseFunction release;
    void* user_data;
  };

  SlotOwner<Slot> owner_;
};

template <typename... Args>
class Signal;

// A listener over a function object; an empty one is skipped silently.
//
// Threads: any. Of two concurrent InvokeOnce only one finds the callback. The callback is destroyed
//          by whoever drops it last, never under the lock.
template <typename... Args>
class FORGE_EXPORT CppStyleListener final : public IListener<Args...> {
 public:
  explicit CppStyleListener(std::function<void(Args...)> callback);
  ~CppStyleListener() override;
  CppStyleListener(const CppStyleListener&) = delete;
  CppStyleListener& operator=(const CppStyleListener&) = delete;

  void Invoke(Args... args) const override;
  void InvokeOnce(Args... args) override;

 private:
  friend class Signal<Args...>;

  // Invoke without the lock. A signal never changes the callbacks of its listeners.
  void InvokeUnlocked(Args... args) const;
  std::function<void(Args...)> Take();

  mutable std::shared_mutex mutex_;
  std::function<void(Args...)> callback_;  // Guarded by mutex_, but for InvokeUnlocked.
};

namespace details {

template <typename... Args>
struct Subscription {
  uint32_t id;
  std::shared_ptr<IListener<Args...>> listener;
};

template <typename... Args>
using Subscriptions = std::vector<Subscription<Args...>>;

}  // namespace details

// An event that may happen again and again. Each emission calls those that are subscribed when it
// begins.
template <typename... Args>
class FORGE_EXPORT Signal : public details::CounterClient {
 public:
  // Returns the subscription's id, unique in the process. The callback is first called by the
  // next emission that begins.
  uint32_t Subscribe(std::function<void(Args...)> callback);

  // False when there is no such subscription. An emission that runs may still call the callback.
  bool Unsubscribe(uint32_t id);

 protected:
  Signal() = default;

  // Calls those that are subscribed now; one that dies in the meantime is skipped.
  void EmitImpl(Args... args) const;

 private:
  using Listener = CppStyleListener<Args...>;
  using Snapshot = std::vector<std::weak_ptr<const Listener>>;

  struct Subscription {
    uint32_t id;
    std::shared_ptr<const Listener> listener;
  };

  std::shared_ptr<const Snapshot> TakeSnapshot() const;

  mutable std::shared_mutex mutex_;
  std::vector<Subscription> subscriptions_;  // Guarded by mutex_.
  // Guarded by mutex_. The listeners of subscriptions_ for the emissions, which share it; it is
  // never edited. Null: the next emission makes it.
  mutable std::shared_ptr<const Snapshot> snapshot_;
};

// An event that happens at most once. Whoever subscribes after it did is called at once, on the
// subscribing thread, with what it was emitted with.
template <typename... Args>
class FORGE_EXPORT RunOnceSignal : public details::CounterClient {
 public:
  // Returns the subscription's id, unique in the process.
  uint32_t Subscribe(std::function<void(Args...)> callback);

  // False when there is no such subscription, also once the signal was emitted: it has none then.
  bool Unsubscribe(uint32_t id);

  // Attaches a listener that the caller owns: it is called (InvokeOnce) after the subscribers, if
  // it still lives then, or at once when the signal was emitted already.
  void Attach(std::weak_ptr<IListener<Args...>> listener);

 protected:
  RunOnceSignal() = default;

  // The first emission calls and drops the listeners; later ones do nothing.
  void EmitImpl(Args... args);

 private:
  using SubscriptionList = details::Subscriptions<Args...>;
  using AttachedList = std::vector<std::weak_ptr<IListener<Args...>>>;

  template <typename List, typename Item>
  static void Append(std::shared_ptr<const List>& list, Item item);

  std::mutex mutex_;
  // Guarded by mutex_. The lists are replaced, never edited, so an emission takes them over whole;
  // null: empty.
  std::shared_ptr<const SubscriptionList> subscriptions_;
  std::shared_ptr<const AttachedList> attached_;
  bool emitted_ = false;
  // Written once, before emitted_ is set.
  std::optional<std::tuple<Args...>> arguments_;
};

// The owner's ends of the two signals: only these emit. An emission hands each listener the same
// arguments.
template <typename... Args>
class FORGE_EXPORT OwnedSignal final : public Signal<Args...> {
 public:
  void Emit(Args... args) const { this->EmitImpl(std::forward<Args>(args)...); }
};

template <typename... Args>
class FORGE_EXPORT OwnedRunOnceSignal final : public RunOnceSignal<Args...> {
 public:
  void Emit(Args... args) { this->EmitImpl(std::forward<Args>(args)...); }
};

// Packs a function object into a C slot (size, callback, release, user_data), for a C function that
// takes one.
//
//   auto slot = forge::CreateSlot<TAVOOpenUriSlot, bool>([](bool success) { Show(success); });
//   table.OpenUri(intent_manager, uri, &slot);
//
// Ownership: whoever receives the slot must call its release function exactly once, which destroys
//            the function object; CreateSlot itself frees nothing.
// Errors:    an exception of the function object leaves the callback. The receiver is C, so wrap
//            what may throw in forge::Fence.
template <typename SlotT, typename... Args, typename Fn>
SlotT CreateSlot(Fn&& fn);

}  // namespace forge

#include "forge/signals_impl.h"  // IWYU pragma: export
