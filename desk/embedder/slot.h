// The slots of a plug-in, as far as they are declared.
//
// Threads: none of their own; a slot is released on the thread that drops it last.
#pragma once

#include <map>
#include <memory>
#include <utility>
#include <vector>

#include "forge/proc_table.h"
#include "forge/slot_owner.h"

namespace desk {

template <typename T>
using SharedSlot = std::shared_ptr<const forge::SlotOwner<T>>;

// Takes a slot over. An entry calls this first, so that the slot is released whatever the entry
// does. Without memory for it the process ends, because no exception may leave the entry.
template <typename T>
SharedSlot<T> TakeSlot(const T* slot) noexcept {
  return std::make_shared<const forge::SlotOwner<T>>(forge::CopyCovered(slot));
}

// Slots by the ids of their subscriptions. A slot may subscribe, unsubscribe and end the engine.
template <typename T>
class Subscriptions {
 public:
  // 0 when there is nothing to call.
  unsigned int Add(unsigned int id, SharedSlot<T> slot) {
    if (!slot->Has(&T::callback)) return 0;
    slots_.emplace(id, std::move(slot));
    return id;
  }

  // Both release the slots after the map was changed.
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
      slot->Call(&T::callback, arguments...);
    }
  }

 private:
  std::map<unsigned int, SharedSlot<T>> slots_;
};

}  // namespace desk
