// The implementation of kit/values.h, which includes this file.
//
// Reading: an overload of ReadValue a kind of type. It stores the value in `out`, or it describes
// the mismatch at `place` and returns false. The overloads find each other by their argument of the
// type Place, so their order does not matter.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

#include "cw/admission.h"
#include "cw/encodable_value.h"
#include "cw/map_access.h"
#include "kit/describe.h"
#include "kit/failure.h"
#include "kit/values.h"

namespace tavo::kit::details {

using cw::EncodableList;
using cw::EncodableMap;
using cw::EncodableValue;

// ---- Types ----

struct AnyVisitor {
  template <typename Member>
  bool operator()(std::string_view name, Member member);
};

template <typename T, typename = void>
struct IsStruct : std::false_type {};
template <typename T>
struct IsStruct<T, std::void_t<decltype(TavoVisitFields(std::declval<const T*>(), AnyVisitor{}))>>
    : std::true_type {};

template <typename T, typename = void>
struct IsEnum : std::false_type {};
template <typename T>
struct IsEnum<T, std::void_t<decltype(TavoGetEnumerators(std::declval<const T*>()))>>
    : std::true_type {};

template <typename T>
struct IsOptional : std::false_type {};
template <typename T>
struct IsOptional<std::optional<T>> : std::true_type {};

template <typename T>
struct IsList : std::false_type {};
template <typename T>
struct IsList<std::vector<T>> : std::true_type {};
template <typename T, size_t N>
struct IsList<std::array<T, N>> : std::true_type {};

template <typename T>
struct IsTuple : std::false_type {};
template <typename... T>
struct IsTuple<std::tuple<T...>> : std::true_type {};
template <typename T, typename U>
struct IsTuple<std::pair<T, U>> : std::true_type {};

template <typename T>
struct IsMap : std::false_type {};
template <typename K, typename T, typename Less, typename Allocator>
struct IsMap<std::map<K, T, Less, Allocator>> : std::true_type {};

template <typename T>
constexpr bool kIsInteger = std::is_integral_v<T> && !std::is_same_v<T, bool>;

// Whether an EncodableValue may hold the std::vector<T> itself.
template <typename T>
constexpr bool kIsElement = std::is_constructible_v<EncodableValue, std::vector<T>>;

// ---- Places ----

// Where a value lies: the way to it from the root, for example params.items[3].size. A place lives
// as long as the function that reads there; it refers to the place around it.
class Place {
 public:
  // The root. `mismatch` receives the description of what does not fit.
  Place(std::string_view root, std::string* mismatch) : mismatch_(mismatch), step_(root) {}
  Place(const Place& outer, std::string_view field) : Place(&outer, Step(field)) {}
  Place(const Place& outer, size_t index) : Place(&outer, Step(index)) {}
  Place(const Place& outer, const EncodableValue* key) : Place(&outer, Step(key)) {}

  // The number of places around this one.
  int GetDepth() const { return depth_; }
  // The place as a text, in which a long way is shortened.
  std::string Describe() const;

  void SetMismatch(std::string text) const { *mismatch_ = std::move(text); }

 private:
  using Step = std::variant<std::string_view, size_t, const EncodableValue*>;

  Place(const Place* outer, Step step)
      : outer_(outer), mismatch_(outer->mismatch_), step_(step), depth_(outer->depth_ + 1) {}
  std::string DescribeStep() const;

  const Place* outer_ = nullptr;
  std::string* mismatch_;
  Step step_;
  int depth_ = 0;
};

// What a field that is missing is read from: a null value, which Refuse tells from others.
const EncodableValue& GetMissing();

// Each describes a mismatch and returns false.
bool Refuse(const Place& place, std::string_view expected, const EncodableValue& found);
bool RefuseSize(const Place& place, size_t expected, size_t found);
bool RefuseDepth(const Place& place);
bool RefuseName(const Place& place, const std::vector<std::string>& expected,
                const EncodableValue& found);

// The failure of To.
Failure MakeBadValue(const std::string& mismatch);

// The text that an enumerator travels as.
std::string GetWireName(std::string_view enumerator);
// Throws the std::range_error of From.
[[noreturn]] void ThrowUnnamed();
[[noreturn]] void ThrowOutOfRange();

// ---- Reading ----

bool ReadValue(const EncodableValue& value, const Place& place, bool& out);
bool ReadValue(const EncodableValue& value, const Place& place, double& out);
bool ReadValue(const EncodableValue& value, const Place& place, float& out);
bool ReadValue(const EncodableValue& value, const Place& place, std::string& out);
bool ReadValue(const EncodableValue& value, const Place& place, std::monostate& out);
bool ReadValue(const EncodableValue& value, const Place& place, EncodableValue& out);

// A range of integers that begins at 0 or below.
struct Range {
  int64_t min;
  uint64_t max;
};
// Stores the number modulo 2^64.
bool ReadInteger(const EncodableValue& value, const Place& place, Range range, uint64_t& out);

template <typename T>
std::enable_if_t<kIsInteger<T>, bool> ReadValue(const EncodableValue& value, const Place& place,
                                                T& out) {
  constexpr Range kRange = {static_cast<int64_t>(std::numeric_limits<T>::min()),
                            static_cast<uint64_t>(std::numeric_limits<T>::max())};
  uint64_t number = 0;
  if (!ReadInteger(value, place, kRange, number)) return false;
  out = static_cast<T>(number);
  return true;
}

template <typename T>
std::enable_if_t<IsEnum<T>::value, bool> ReadValue(const EncodableValue& value, const Place& place,
                                                   T& out) {
  std::vector<std::string> names;
  const auto* text = value.GetIf<std::string>();
  for (const auto& enumerator : TavoGetEnumerators(&out)) {
    names.push_back(GetWireName(enumerator.name));
    if (!text || *text != names.back()) continue;
    out = enumerator.value;
    return true;
  }
  return RefuseName(place, names, value);
}

template <typename T>
bool ReadValue(const EncodableValue& value, const Place& place, std::optional<T>& out) {
  if (value.IsNull()) return true;
  return ReadValue(value, place, out.emplace());
}

// A list of any kind, whose elements are read as values.
class ListView {
 public:
  explicit ListView(const EncodableValue& value)
      : value_(value), values_(value.GetIf<EncodableList>()) {}

  // Empty: the value is no list.
  std::optional<size_t> GetSize() const;

  // The result is valid until the next call.
  const EncodableValue& Get(size_t index) { return values_ ? (*values_)[index] : GetNumber(index); }

 private:
  const EncodableValue& GetNumber(size_t index);

  const EncodableValue& value_;
  const EncodableList* const values_;  // Null: the value is no list, or a list of numbers.
  EncodableValue number_;
};

// The list grows with what was read: to reserve memory by the size of the peer's list would let a
// small message take much of it.
template <typename T>
bool ReadValue(const EncodableValue& value, const Place& place, std::vector<T>& out) {
  if constexpr (kIsElement<T>) {
    if (const auto* same = value.GetIf<std::vector<T>>()) {
      out = *same;
      return true;
    }
  }
  ListView list(value);
  const auto size = list.GetSize();
  if (!size) return Refuse(place, std::is_same_v<T, uint8_t> ? "bytes" : "a list", value);
  for (size_t i = 0; i < *size; ++i) {
    T item{};
    if (!ReadValue(list.Get(i), Place(place, i), item)) return false;
    out.push_back(std::move(item));
  }
  return true;
}

// Reads a list of exactly these elements.
template <typename... T>
bool ReadElements(const EncodableValue& value, const Place& place, T&... out) {
  ListView list(value);
  const auto size = list.GetSize();
  if (!size) return Refuse(place, "a list", value);
  if (*size != sizeof...(T)) return RefuseSize(place, sizeof...(T), *size);
  size_t i = 0;
  const auto read = [&](auto& item) {
    const size_t index = i++;
    return ReadValue(list.Get(index), Place(place, index), item);
  };
  return (read(out) && ...);
}

template <typename T>
std::enable_if_t<IsTuple<T>::value, bool> ReadValue(const EncodableValue& value, const Place& place,
                                                    T& out) {
  return std::apply([&](auto&... items) { return ReadElements(value, place, items...); }, out);
}

template <typename T, size_t N>
bool ReadValue(const EncodableValue& value, const Place& place, std::array<T, N>& out) {
  ListView list(value);
  const auto size = list.GetSize();
  if (!size) return Refuse(place, "a list", value);
  if (*size != N) return RefuseSize(place, N, *size);
  for (size_t i = 0; i < N; ++i) {
    if (!ReadValue(list.Get(i), Place(place, i), out[i])) return false;
  }
  return true;
}

template <typename K, typename T, typename Less, typename Allocator>
bool ReadValue(const EncodableValue& value, const Place& place,
               std::map<K, T, Less, Allocator>& out) {
  const auto* map = value.GetIf<EncodableMap>();
  if (!map) return Refuse(place, "a map", value);
  for (const auto& [name, content] : *map) {
    const Place entry(place, &name);
    K key{};
    if (!ReadValue(name, Place(entry, std::string_view("(key)")), key)) return false;
    T item{};
    if (!ReadValue(content, entry, item)) return false;
    out.emplace(std::move(key), std::move(item));
  }
  return true;
}

// Only structs can hold themselves, so this overload alone looks at the depth.
template <typename T>
std::enable_if_t<IsStruct<T>::value, bool> ReadValue(const EncodableValue& value,
                                                     const Place& place, T& out) {
  if (place.GetDepth() > cw::kDeepestNesting) return RefuseDepth(place);
  const auto* map = value.GetIf<EncodableMap>();
  if (!map) return Refuse(place, "a map", value);
  return TavoVisitFields(&out, [&](std::string_view name, auto member) {
    const EncodableValue* found = cw::Find(*map, name);
    return ReadValue(found ? *found : GetMissing(), Place(place, name), out.*member);
  });
}

template <typename T, typename = void>
struct IsReadable : std::false_type {};
template <typename T>
struct IsReadable<
    T, std::void_t<decltype(ReadValue(std::declval<const EncodableValue&>(),
                                      std::declval<const Place&>(), std::declval<T&>()))>>
    : std::true_type {};

// ---- Writing ----

// A part of an object: to be moved if the object is a temporary.
template <typename Object, typename Part>
decltype(auto) PartOf(Part& part) {
  if constexpr (std::is_lvalue_reference_v<Object>) {
    return static_cast<const Part&>(part);
  } else {
    return static_cast<Part&&>(part);
  }
}

template <typename T>
EncodableValue FromInteger(T number) {
  using Limits = std::numeric_limits<T>;
  if constexpr (Limits::digits <= 31) {
    return static_cast<int32_t>(number);
  } else {
    if constexpr (Limits::digits > 63) {
      if (number > static_cast<T>(std::numeric_limits<int64_t>::max())) ThrowOutOfRange();
    }
    return static_cast<int64_t>(number);
  }
}

template <typename T>
EncodableValue FromEnum(T value) {
  for (const auto& enumerator : TavoGetEnumerators(&value)) {
    if (enumerator.value == value) return GetWireName(enumerator.name);
  }
  ThrowUnnamed();
}

template <typename T, typename List>
EncodableValue FromList(List&& list) {
  if constexpr (kIsElement<T>) {
    return std::vector<T>(list.begin(), list.end());
  } else {
    EncodableList values;
    values.reserve(list.size());
    for (auto&& item : list) {
      if constexpr (std::is_same_v<T, bool>) {  // std::vector<bool> has no real elements.
        values.emplace_back(static_cast<bool>(item));
      } else {
        values.push_back(From(PartOf<List>(item)));
      }
    }
    return values;
  }
}

template <typename Tuple>
EncodableValue FromTuple(Tuple&& tuple) {
  EncodableList values;
  std::apply([&](auto&... items) { (values.push_back(From(PartOf<Tuple>(items))), ...); }, tuple);
  return values;
}

template <typename Map>
EncodableValue FromMap(Map&& map) {
  EncodableMap values;
  for (auto& [key, item] : map)
    values.emplace_hint(values.end(), From(key), From(PartOf<Map>(item)));
  return values;
}

template <typename Struct>
EncodableValue FromStruct(Struct&& object) {
  EncodableMap values;
  TavoVisitFields(&object, [&](std::string_view name, auto member) {
    auto& field = object.*member;
    if constexpr (IsOptional<std::decay_t<decltype(field)>>::value) {
      if (!field) return true;
    }
    values.emplace(name, From(PartOf<Struct>(field)));
    return true;
  });
  return values;
}

}  // namespace tavo::kit::details

namespace tavo::kit {

template <typename T>
Result<T> To(const cw::EncodableValue& value, std::string_view root) {
  static_assert(details::IsReadable<T>::value, "The type needs TAVO_DESCRIBE (kit/describe.h).");
  std::string mismatch;
  T result{};
  const bool fits = details::ReadValue(value, details::Place(root, &mismatch), result);
  if (!fits) return details::MakeBadValue(mismatch);
  return result;
}

template <typename T>
cw::EncodableValue From(T&& object) {
  using Type = std::decay_t<T>;
  if constexpr (std::is_constructible_v<cw::EncodableValue, T>) {
    return cw::EncodableValue(std::forward<T>(object));
  } else if constexpr (details::kIsInteger<Type>) {
    return details::FromInteger(object);
  } else if constexpr (std::is_floating_point_v<Type>) {
    return static_cast<double>(object);
  } else if constexpr (details::IsEnum<Type>::value) {
    return details::FromEnum(object);
  } else if constexpr (details::IsOptional<Type>::value) {
    return object ? From(*std::forward<T>(object)) : cw::EncodableValue();
  } else if constexpr (details::IsList<Type>::value) {
    return details::FromList<typename Type::value_type>(std::forward<T>(object));
  } else if constexpr (details::IsTuple<Type>::value) {
    return details::FromTuple(std::forward<T>(object));
  } else if constexpr (details::IsMap<Type>::value) {
    return details::FromMap(std::forward<T>(object));
  } else {
    static_assert(details::IsStruct<Type>::value, "The type needs TAVO_DESCRIBE (kit/describe.h).");
    return details::FromStruct(std::forward<T>(object));
  }
}

}  // namespace tavo::kit
