// Objects that cross the C interface as opaque handles.
//
// A handle is the object's id cast to the handle type, never an address: one that outlived its
// object resolves to nothing.
//
//   class Manager final : public forge::Object<Manager, _TAVOManagerRef*> {
//     struct PrivateTag {};
//    public:
//     explicit Manager(PrivateTag) : Object(forge::IDispatcher::CreateEmpty()) {}
//     static std::shared_ptr<Manager> Create() { return Object::Create(PrivateTag{}); }
//   };
//
// Threads: any. Each registry and each object's dispatcher has its own reader-writer lock; no code
//          holds both. No task runs under them; only a dispatcher that is dropped dies there.
// Errors:  an unknown, null or stale handle gives null; the caller reports it in its own words.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <unordered_map>
#include <utility>

#include "forge/dispatcher.h"
#include "forge/export.h"

namespace forge {
namespace details {

// Base of everything that hands out ids: objects, signals, resources caches.
class FORGE_EXPORT CounterClient {
 public:
  virtual ~CounterClient();

  // The next number of the one process-wide counter: 1 first, and 0 only when it wraps.
  static uint32_t GenerateId();

 protected:
  // The next number that is an id: 0 means 'none' everywhere, so a drawn 0 is drawn again.
  static uint32_t DrawId();

  static std::atomic<uint32_t> counter_;
};

// The part of an object that does not depend on its type.
class FORGE_EXPORT ObjectImpl : public CounterClient {
 public:
  explicit ObjectImpl(const std::shared_ptr<IDispatcher>& dispatcher);
  ~ObjectImpl() override;
  ObjectImpl(const ObjectImpl&) = delete;
  ObjectImpl& operator=(const ObjectImpl&) = delete;

  // Hands the task to the dispatcher, outside the lock; does nothing when there is none.
  void Invoke(const std::function<void()>& task, uint32_t flags) const;

  // Drops the dispatcher; the object keeps working.
  void ResetDispatcher();

 private:
  mutable std::shared_mutex mutex_;
  std::shared_ptr<IDispatcher> dispatcher_;  // Guarded by mutex_.
};

template <typename T, typename Ref>
class ObjectRegistry {
 public:
  // False, and nothing changed, when the id is taken (possible only once the counter wrapped).
  bool Insert(uint32_t id, const std::weak_ptr<T>& object);
  void Erase(uint32_t id);
  std::shared_ptr<T> Find(uint32_t id) const;

 private:
  mutable std::shared_mutex mutex_;
  std::unordered_map<uint32_t, std::weak_ptr<T>> objects_;  // Guarded by mutex_.
};

}  // namespace details

template <typename T, typename Ref>
class Object : public details::ObjectImpl, public std::enable_shared_from_this<T> {
 public:
  explicit Object(const std::shared_ptr<IDispatcher>& dispatcher);
  ~Object() override;

  // The object behind a handle, or null: never issued, null, destroyed or being destroyed.
  static std::shared_ptr<T> FromRef(Ref ref);

  Ref GetRef() const { return reinterpret_cast<Ref>(static_cast<uintptr_t>(id_)); }
  uint32_t GetId() const { return id_; }

 protected:
  // Builds and registers an object; the last argument is the private tag of T.
  template <typename... Args>
  static std::shared_ptr<T> Create(Args&&... args);

  // Makes the handle resolve to nothing from now on, though the object may live on.
  void Unregister();

 private:
  static details::ObjectRegistry<T, Ref>& GetRegistry();

  const uint32_t id_;
  // An object whose id was taken is not in the registry and must not erase the other's entry.
  std::atomic<bool> registered_{false};
};

// ------------------------------------------------------------------------------------------------

namespace details {

template <typename T, typename Ref>
bool ObjectRegistry<T, Ref>::Insert(uint32_t id, const std::weak_ptr<T>& object) {
  const std::unique_lock lock(mutex_);
  return objects_.emplace(id, object).second;
}

template <typename T, typename Ref>
void ObjectRegistry<T, Ref>::Erase(uint32_t id) {
  const std::unique_lock lock(mutex_);
  objects_.erase(id);
}

template <typename T, typename Ref>
std::shared_ptr<T> ObjectRegistry<T, Ref>::Find(uint32_t id) const {
  const std::shared_lock lock(mutex_);
  const auto found = objects_.find(id);
  return found == objects_.end() ? nullptr : found->second.lock();
}

}  // namespace details

template <typename T, typename Ref>
Object<T, Ref>::Object(const std::shared_ptr<IDispatcher>& dispatcher)
    : ObjectImpl(dispatcher), id_(DrawId()) {}

template <typename T, typename Ref>
Object<T, Ref>::~Object() {
  Unregister();
}

template <typename T, typename Ref>
template <typename... Args>
std::shared_ptr<T> Object<T, Ref>::Create(Args&&... args) {
  auto object = std::make_shared<T>(std::forward<Args>(args)...);
  object->registered_ = GetRegistry().Insert(object->GetId(), object);
  return object;
}

template <typename T, typename Ref>
void Object<T, Ref>::Unregister() {
  if (registered_.exchange(false)) GetRegistry().Erase(id_);
}

template <typename T, typename Ref>
std::shared_ptr<T> Object<T, Ref>::FromRef(Ref ref) {
  // An id has 32 bits: a wider pointer is no handle, whatever its low half says.
  const auto value = reinterpret_cast<uintptr_t>(ref);
  const auto id = static_cast<uint32_t>(value);
  return id == value ? GetRegistry().Find(id) : nullptr;
}

template <typename T, typename Ref>
details::ObjectRegistry<T, Ref>& Object<T, Ref>::GetRegistry() {
  // Never destroyed: objects with static storage unregister while the process exits.
  static auto& registry = *new details::ObjectRegistry<T, Ref>;
  return registry;
}

}  // namespace forge
