// The slots that a plug-in gives, and the structures that it lends, as far as they are declared.
//
// Threads: none of their own; a slot is released on the thread that drops it last.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <map>
#include <memory>
#include <type_traits>
#include <utility>
#include <vector>

namespace desk {

// The structure's fields that its declared size covers, the others zero. For structures of which
// each field is as large as a pointer, save the size in front.
template <typename T>
T CopyCovered(const T* structure) {
  static_assert(std::is_trivially_copyable_v<T>);
  T copy{};
  if (!structure) return copy;
  uint32_t declared = 0;
  std::memcpy(&declared, structure, sizeof declared);
  const size_t covered = std::min<size_t>(declared, sizeof(T)) / sizeof(void*) * sizeof(void*);
  std::memcpy(static_cast<void*>(&copy), structure, covered);
  copy.size = declared;
  return copy;
}

// A slot as its owner: releases it when it goes.
template <typename T>
class Slot {
 public:
  explicit Slot(const T* slot) : slot_(CopyCovered(slot)) {}
  ~Slot() {
    if (slot_.release) slot_.release(slot_.user_data);
  }
  Slot(const Slot&) = delete;
  Slot& operator=(const Slot&) = delete;

  bool IsCallable() const { return slot_.callback != nullptr; }

  template <typename... Arguments>
  void Call(Arguments... arguments) const {
    if (slot_.callback) slot_.callback(slot_.user_data, arguments...);
  }

 private:
  const T slot_;
};

template <typename T>
using SharedSlot = std::shared_ptr<const Slot<T>>;

// To be called first of all: the slot is released whatever becomes of the call. Without memory for
// it the process ends: no exception may leave the entry.
template <typename T>
SharedSlot<T> TakeSlot(const T* slot) noexcept {
  return std::make_shared<const Slot<T>>(slot);
}

// Slots by their subscriptions' ids. A slot may subscribe, unsubscribe and end the engine.
template <typename T>
class Subscriptions {
 public:
  // 0 when there is nothing to call.
  unsigned int Add(unsigned int id, SharedSlot<T> slot) {
    if (!slot->IsCallable()) return 0;
    slots_.emplace(id, std::move(slot));
    return id;
  }

  // Both release only once the map is as it will be.
  void Remove(unsigned int id) { const auto node = slots_.extract(id); }
  void Clear() { const auto gone = std::exchange(slots_, {}); }

  template <typename... Arguments>
  void Emit(Arguments... arguments) const {
    std::vector<unsigned int> ids;
    for (const auto& entry : slots_) ids.push_back(entry.first);
    for (const unsigned int id : ids) {
      const auto found = slots_.find(id);
      if (found == slots_.end()) continue;
      const SharedSlot<T> slot = found->second;
      slot->Call(arguments...);
    }
  }

 private:
  std::map<unsigned int, SharedSlot<T>> slots_;
};

}  // namespace desk
