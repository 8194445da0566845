// A walk through the values of a tree in the order of their encoding: a list or a map comes before
// the values in it, a key before its value.
//
// Beyond the first levels, the path back to the root lies on the heap. So a tree may nest as deep
// as memory allows, on any stack.
//
// Threads: those of the value, which must not change during a walk.
// Errors:  a walk deeper than kNearLevels propagates allocation failures.
#pragma once

#include <cstddef>
#include <new>
#include <type_traits>
#include <vector>

#include "cw/encodable_value.h"

namespace cw::details {

constexpr size_t kNearLevels = 16;  // Deeper than nearly every tree.

// A stack whose first kNearLevels elements need no allocation.
template <typename T>
class PathStack {
  static_assert(std::is_trivially_copyable_v<T>);

 public:
  size_t GetSize() const { return size_; }

  void Push(const T& element) {
    if (size_ < kNearLevels) {
      new (At(size_)) T(element);
    } else {
      far_.push_back(element);
    }
    ++size_;
  }

  // There must be an element.
  T Pop() {
    if (size_-- <= kNearLevels) return *std::launder(reinterpret_cast<T*>(At(size_)));
    const T element = far_.back();
    far_.pop_back();
    return element;
  }

 private:
  std::byte* At(size_t index) { return near_ + index * sizeof(T); }

  size_t size_ = 0;
  std::vector<T> far_;
  alignas(T) std::byte near_[kNearLevels * sizeof(T)];
};

// The values in a list or a map, one by one. An empty one, and any other value, has none.
class Children {
 public:
  explicit Children(const EncodableValue& value) : list_(value.GetIf<EncodableList>()) {
    if (list_) {
      element_ = list_->data();
    } else if (const auto* map = value.GetIf<EncodableMap>()) {
      map_ = map;
      entry_ = map->begin();
    }
  }

  // Null at the end.
  const EncodableValue* Next() {
    if (list_) return element_ == list_->data() + list_->size() ? nullptr : element_++;
    if (at_mapped_) {
      at_mapped_ = false;
      return &(entry_++)->second;
    }
    if (!map_ || entry_ == map_->end()) return nullptr;
    at_mapped_ = true;
    return &entry_->first;
  }

 private:
  const EncodableList* list_;
  const EncodableMap* map_ = nullptr;
  const EncodableValue* element_ = nullptr;
  EncodableMap::const_iterator entry_;
  bool at_mapped_ = false;  // The next value is the one of the key that came last.
};

// Calls visit(value, depth) for each value of the tree; `depth` counts the lists and maps around
// it. A visit that answers false ends the walk.
template <typename Visit>
void Walk(const EncodableValue& root, const Visit& visit) {
  if (!visit(root, size_t{0}) || !root.HoldsValues()) return;
  PathStack<Children> path;
  for (Children level(root);;) {
    const EncodableValue* const value = level.Next();
    if (!value) {
      if (path.GetSize() == 0) return;
      level = path.Pop();
    } else {
      if (!visit(*value, path.GetSize() + 1)) return;
      if (value->HoldsValues()) {
        path.Push(level);
        level = Children(*value);
      }
    }
  }
}

// Compares two trees value by value until compare(a, b) returns other than 0, which is the result.
// compare takes lists and maps of one kind as equal; the one with fewer values is the smaller one.
template <typename Compare>
int WalkBoth(const EncodableValue& a, const EncodableValue& b, const Compare& compare) {
  struct Level {
    Children a;
    Children b;
  };
  const int order = compare(a, b);
  if (order != 0 || (!a.HoldsValues() && !b.HoldsValues())) return order;
  PathStack<Level> path;
  for (Level level{Children(a), Children(b)};;) {
    const EncodableValue* const left = level.a.Next();
    const EncodableValue* const right = level.b.Next();
    if (!left || !right) {
      if (left || right) return left ? 1 : -1;
      if (path.GetSize() == 0) return 0;
      level = path.Pop();
    } else {
      if (const int difference = compare(*left, *right)) return difference;
      if (left->HoldsValues() || right->HoldsValues()) {
        path.Push(level);
        level = {Children(*left), Children(*right)};
      }
    }
  }
}

}  // namespace cw::details
