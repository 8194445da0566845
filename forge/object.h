// The base of objects that cross the C interface as opaque handles.
//
// A handle is the object's id cast to the handle type, never an address. A handle that outlives its
// object resolves to nothing.
//
//   class Manager final : public forge::Object<Manager, _TAVOManagerRef*> {
//     struct PrivateTag {};
//    public:
//     explicit Manager(PrivateTag) : Object(forge::IDispatcher::CreateEmpty()) {}
//     static std::shared_ptr<Manager> Create() { return Object::Create(PrivateTag{}); }
//   };
//
//   _TAVOManagerRef* const ref = manager->GetRef();     // What the C caller holds.
//   if (const auto manager = Manager::FromRef(ref)) ...  // What each entry does with it.
//
// Threads:   any. Each registry and each object's dispatcher has its own reader-writer lock; no
//            code holds both. No task runs under these locks. Only a dispatcher that is dropped is
//            destroyed under one.
// Ownership: the registry holds weak pointers only. FromRef shares the object with the caller for
//            as long as the caller keeps the result.
// Errors:    an unknown, null or stale handle gives null; the caller reports it in its own words.
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

// The base of everything that has ids: objects, signals, resources caches.
class FORGE_EXPORT CounterClient {
 public:
  virtual ~CounterClient();

  // Returns the next number of the only counter of the process: 1 first, and 0 only when it wraps.
  static uint32_t GenerateId();

 protected:
  // Returns the next number that is an id. 0 means "none" everywhere, so it is skipped.
  static uint32_t DrawId();

  static std::atomic<uint32_t> counter_;  // The number that was given out last.
};

// The part of an object that does not depend on its type: the dispatcher of its callbacks.
class FORGE_EXPORT ObjectImpl : public CounterClient {
 public:
  // A null dispatcher is allowed: Invoke does nothing then.
  explicit ObjectImpl(const std::shared_ptr<IDispatcher>& dispatcher);
  ~ObjectImpl() override;
  ObjectImpl(const ObjectImpl&) = delete;
  ObjectImpl& operator=(const ObjectImpl&) = delete;

  // Hands the task to the dispatcher, outside the lock. Does nothing when there is no dispatcher.
  void Invoke(const std::function<void()>& task, uint32_t flags) const;

  // Drops the dispatcher. The object keeps working, but Invoke does nothing from now on.
  void ResetDispatcher();

 private:
  mutable std::shared_mutex mutex_;
  std::shared_ptr<IDispatcher> dispatcher_;  // Guarded by mutex_.
};

// The living objects of one type by their ids.
template <typename T, typename Ref>
class ObjectRegistry {
 public:
  // Returns false, and changes nothing, when the id is taken. That is possible only once the
  // counter has wrapped.
  bool Insert(uint32_t id, const std::weak_ptr<T>& object);

  // Removes the id; an unknown one is ignored.
  void Erase(uint32_t id);

  // Null when the id is unknown, or when its object is destroyed or being destroyed.
  std::shared_ptr<T> Find(uint32_t id) const;

 private:
  mutable std::shared_mutex mutex_;
  std::unordered_map<uint32_t, std::weak_ptr<T>> objects_;  // Guarded by mutex_.
};

}  // namespace details

// The base of a class T whose objects have handles of the pointer type Ref. Objects must be made by
// Create; an object that is made otherwise has a handle that resolves to nothing.
template <typename T, typename Ref>
class Object : public details::ObjectImpl, public std::enable_shared_from_this<T> {
 public:
  explicit Object(const std::shared_ptr<IDispatcher>& dispatcher);
  ~Object() override;

  // Returns the object of a handle. Null when the handle is null or was never issued, and when its
  // object is unregistered, destroyed or being destroyed.
  static std::shared_ptr<T> FromRef(Ref ref);

  // The object's handle and id. They never change, and the handle is never null.
  Ref GetRef() const { return reinterpret_cast<Ref>(static_cast<uintptr_t>(id_)); }
  uint32_t GetId() const { return id_; }

 protected:
  // Makes and registers an object. The arguments go to the constructor of T; the last one is its
  // private tag. Never null: a failed allocation throws, as does the constructor.
  template <typename... Args>
  static std::shared_ptr<T> Create(Args&&... args);

  // Makes the handle resolve to nothing from now on, though the object may live on. A second call
  // does nothing.
  void Unregister();

 private:
  static details::ObjectRegistry<T, Ref>& GetRegistry();

  const uint32_t id_;
  // An object whose id was taken is not in the registry, and must not erase the other object's
  // entry.
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
