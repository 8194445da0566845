// The definitions of the templates of signals.h, which includes this file at its end.
#pragma once

#include <algorithm>
#include <utility>

#include "forge/signals.h"

namespace forge {

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
void CppStyleListener<Args...>::InvokeUnlocked(Args... args) const {
  const auto callback = callback_;
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
  auto listener = std::make_shared<const Listener>(std::move(callback));
  const uint32_t id = this->DrawId();
  const std::lock_guard lock(mutex_);
  subscriptions_.push_back({id, std::move(listener)});
  snapshot_.reset();
  return id;
}

template <typename... Args>
bool Signal<Args...>::Unsubscribe(uint32_t id) {
  std::shared_ptr<const Listener> removed;  // Dies after the lock: its callback is foreign.
  const std::lock_guard lock(mutex_);
  const auto found = std::find_if(subscriptions_.begin(), subscriptions_.end(),
                                  [id](const auto& subscription) { return subscription.id == id; });
  if (found == subscriptions_.end()) return false;
  removed = std::move(found->listener);
  subscriptions_.erase(found);
  snapshot_.reset();
  return true;
}

template <typename... Args>
auto Signal<Args...>::TakeSnapshot() const -> std::shared_ptr<const Snapshot> {
  const std::lock_guard lock(mutex_);
  if (!snapshot_ && !subscriptions_.empty()) {
    auto snapshot = std::make_shared<Snapshot>();
    snapshot->reserve(subscriptions_.size());
    for (const auto& subscription : subscriptions_) snapshot->push_back(subscription.listener);
    snapshot_ = std::move(snapshot);
  }
  return snapshot_;
}

template <typename... Args>
void Signal<Args...>::EmitImpl(Args... args) const {
  const auto snapshot = TakeSnapshot();
  if (!snapshot) return;
  for (const auto& entry : *snapshot) {
    if (const auto listener = entry.lock()) listener->InvokeUnlocked(args...);
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
