// Listeners, signals and C slots: how callbacks reach whoever waits for them.
//
// An owner holds OwnedSignal (any number of emissions) or OwnedRunOnceSignal (at most one) and
// shows it as Signal or RunOnceSignal, through which others subscribe but cannot emit.
//
// Threads: any. Listeners run on the emitting thread, in the order of subscription, and never
//          under a lock of the signal or of the listener: a listener may subscribe, unsubscribe
//          or emit on the same signal.
// Errors:  a listener's exception leaves the emission; later listeners are not called then, and a
//          run-once signal stays emitted.
#pragma once

#include <algorithm>
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

// Virtual operations grow only at the end.
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
// InvokeOnce, or else when it is destroyed. Not for use by several threads at once.
template <typename... Args>
class FORGE_EXPORT CStyleListener final : public IListener<Args...> {
 public:
  using CallFunction = void (*)(void* user_data, Args...);
  using ReleaseFunction = void (*)(void* user_data);

  // Both functions may be null.
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

// A listener over a function object; an empty one is skipped silently. Of two concurrent
// InvokeOnce only one finds the callback.
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
  std::function<void(Args...)> Take();

  mutable std::shared_mutex mutex_;
  std::function<void(Args...)> callback_;  // Guarded by mutex_.
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

// An event that may happen again and again.
template <typename... Args>
class FORGE_EXPORT Signal : public details::CounterClient {
 public:
  // Returns the subscription's id, unique in the process.
  uint32_t Subscribe(std::function<void(Args...)> callback);

  // False when there is no such subscription. An emission that runs may still call the callback.
  bool Unsubscribe(uint32_t id);

 protected:
  Signal() = default;

  // Calls those that are subscribed now; one that dies in the meantime is skipped.
  void EmitImpl(Args... args) const;

 private:
  mutable std::shared_mutex mutex_;
  details::Subscriptions<Args...> subscriptions_;  // Guarded by mutex_.
};

// An event that happens at most once. Whoever subscribes after it did is called at once, on the
// subscribing thread, with what it was emitted with.
template <typename... Args>
class FORGE_EXPORT RunOnceSignal : public details::CounterClient {
 public:
  // Returns the subscription's id, unique in the process.
  uint32_t Subscribe(std::function<void(Args...)> callback);

  // False when there is no such subscription (also once the signal was emitted).
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

// Packs a function object into a C slot (size, callback, release, user_data). Whoever receives the
// slot must call its release function exactly once.
//
//   auto slot = forge::CreateSlot<TAVOOpenUriSlot, bool>([](bool success) { ... });
template <typename SlotT, typename... Args, typename Fn>
SlotT CreateSlot(Fn&& fn);

// ------------------------------------------------------------------------------------------------

template <typename... Args>
CStyleListener<Args...>::CStyleListener(CallFunction call, ReleaseFunction release, void* user_data)
    : owner_(Slot{call, release, user_data}) {}

template <typename... Args>
CStyleListener<Args...>::~CStyleListener() = default;

template <typename... Args>
void CStyleListener<Args...>::Invoke(Args... args) const {
  owner_.Call(&Slot::callback, std::forward<Args>(args)...);
}

template <typename... Args>
void CStyleListener<Args...>::InvokeOnce(Args... args) {
  // The slot moves to an owner of its own first: a re-entrant call finds it gone, and its
  // destructor releases the user data once, also when the callback throws or destroys this.
  const SlotOwner<Slot> last(std::move(owner_));
  last.Call(&Slot::callback, std::forward<Args>(args)...);
}

template <typename... Args>
CppStyleListener<Args...>::CppStyleListener(std::function<void(Args...)> callback)
    : callback_(std::move(callback)) {}

template <typename... Args>
CppStyleListener<Args...>::~CppStyleListener() {
  Take();
}

template <typename... Args>
void CppStyleListener<Args...>::Invoke(Args... args) const {
  std::shared_lock lock(mutex_);
  const auto callback = callback_;
  lock.unlock();
  if (callback) callback(std::forward<Args>(args)...);
}

template <typename... Args>
void CppStyleListener<Args...>::InvokeOnce(Args... args) {
  const auto callback = Take();
  if (callback) callback(std::forward<Args>(args)...);
}

template <typename... Args>
std::function<void(Args...)> CppStyleListener<Args...>::Take() {
  const std::unique_lock lock(mutex_);
  return std::exchange(callback_, nullptr);
}

template <typename... Args>
uint32_t Signal<Args...>::Subscribe(std::function<void(Args...)> callback) {
  auto listener = std::make_shared<CppStyleListener<Args...>>(std::move(callback));
  const uint32_t id = this->DrawId();
  const std::unique_lock lock(mutex_);
  subscriptions_.push_back({id, std::move(listener)});
  return id;
}

template <typename... Args>
bool Signal<Args...>::Unsubscribe(uint32_t id) {
  std::shared_ptr<IListener<Args...>> removed;  // Dies after the lock: its callback is foreign.
  const std::unique_lock lock(mutex_);
  const auto found = std::find_if(subscriptions_.begin(), subscriptions_.end(),
                                  [id](const auto& subscription) { return subscription.id == id; });
  if (found == subscriptions_.end()) return false;
  removed = std::move(found->listener);
  subscriptions_.erase(found);
  return true;
}

template <typename... Args>
void Signal<Args...>::EmitImpl(Args... args) const {
  std::vector<std::weak_ptr<IListener<Args...>>> snapshot;
  {
    const std::shared_lock lock(mutex_);
    for (const auto& subscription : subscriptions_) snapshot.push_back(subscription.listener);
  }
  for (const auto& entry : snapshot) {
    if (const auto listener = entry.lock()) listener->Invoke(args...);
  }
}

template <typename... Args>
template <typename List, typename Item>
void RunOnceSignal<Args...>::Append(std::shared_ptr<const List>& list, Item item) {
  auto copy = list ? std::make_shared<List>(*list) : std::make_shared<List>();
  copy->push_back(std::move(item));
  list = std::move(copy);
}

template <typename... Args>
uint32_t RunOnceSignal<Args...>::Subscribe(std::function<void(Args...)> callback) {
  auto listener = std::make_shared<CppStyleListener<Args...>>(std::move(callback));
  const uint32_t id = this->DrawId();
  std::unique_lock lock(mutex_);
  if (!emitted_) {
    Append(subscriptions_, details::Subscription<Args...>{id, std::move(listener)});
    return id;
  }
  lock.unlock();
  std::apply([&listener](const auto&... args) { listener->Invoke(args...); }, *arguments_);
  return id;
}

template <typename... Args>
bool RunOnceSignal<Args...>::Unsubscribe(uint32_t id) {
  std::shared_ptr<const SubscriptionList> replaced;  // Dies after the lock.
  const std::unique_lock lock(mutex_);
  if (!subscriptions_) return false;
  auto copy = std::make_shared<SubscriptionList>(*subscriptions_);
  const auto found = std::find_if(copy->begin(), copy->end(),
                                  [id](const auto& subscription) { return subscription.id == id; });
  if (found == copy->end()) return false;
  copy->erase(found);
  replaced = std::exchange(subscriptions_, std::move(copy));
  return true;
}

template <typename... Args>
void RunOnceSignal<Args...>::Attach(std::weak_ptr<IListener<Args...>> listener) {
  std::unique_lock lock(mutex_);
  if (!emitted_) return Append(attached_, std::move(listener));
  lock.unlock();
  if (const auto living = listener.lock()) {
    std::apply([&living](const auto&... args) { living->InvokeOnce(args...); }, *arguments_);
  }
}

template <typename... Args>
void RunOnceSignal<Args...>::EmitImpl(Args... args) {
  std::unique_lock lock(mutex_);
  if (emitted_) return;
  arguments_.emplace(args...);
  emitted_ = true;
  const auto subscriptions = std::exchange(subscriptions_, nullptr);
  const auto attached = std::exchange(attached_, nullptr);
  lock.unlock();
  if (subscriptions) {
    for (const auto& subscription : *subscriptions) subscription.listener->InvokeOnce(args...);
  }
  if (attached) {
    for (const auto& entry : *attached) {
      if (const auto listener = entry.lock()) listener->InvokeOnce(args...);
    }
  }
}

template <typename SlotT, typename... Args, typename Fn>
SlotT CreateSlot(Fn&& fn) {
  using Function = std::function<void(Args...)>;
  SlotT slot{};
  slot.size = sizeof(SlotT);
  slot.callback = [](void* user_data, Args... args) {
    if (user_data) (*static_cast<Function*>(user_data))(std::forward<Args>(args)...);
  };
  slot.release = [](void* user_data) { delete static_cast<Function*>(user_data); };
  slot.user_data = new Function(std::forward<Fn>(fn));
  return slot;
}

}  // namespace forge
