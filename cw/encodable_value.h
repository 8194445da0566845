// The dynamic value of every message, codec and payload.
//
//   cw::EncodableMap size = {{"width", 1920}, {"height", 1080}};
//   cw::EncodableValue value = std::move(size);
//   if (const auto* map = value.GetIf<cw::EncodableMap>()) ...
//   if (value.Is<std::string>()) Use(value.Get<std::string>());
//
// A value is made from exactly the types of the alternatives, and from texts (a null one throws
// std::logic_error): an `unsigned` or a pointer does not compile, nor does a `long` or `long long`
// that is no int32_t or int64_t on the target. Lists and maps own their elements. Copy a list by
// `=` or parentheses: braces make a list that holds it.
//
// Order: by alternative first (the index below), so int32_t 5 < int64_t 1; within one, by value,
// sequences lexicographically. NaN is equivalent to every double, so doubles as keys may merge.
// Custom values order by the address of their object.
//
// Depth: a tree may nest as deep as memory allows. Reading, writing, copying, comparing and
// destroying it need no stack that grows with its depth. A value may be assigned from within
// itself.
//
// Threads: a plain value, no locking; const operations may run side by side.
// Errors:  Get throws std::bad_variant_access. Deserialize tells nothing: null, empty or
//          undecodable input is the null value; only huge declared counts throw, as
//          standard_codec_serializer.h says. Serialize of a custom value ends the process.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>
#include <typeinfo>
#include <utility>
#include <variant>
#include <vector>

#include "forge/buffer.h"
#include "forge/export.h"
#include "forge/forge_capi.h"

namespace cw {

class EncodableValue;
using EncodableList = std::vector<EncodableValue>;
using EncodableMap = std::map<EncodableValue, EncodableValue>;

// An object of the application's own, for codec extensions. Copies share the object, which stays
// where it is: that address is the value's identity in every comparison.
class FORGE_EXPORT CustomEncodableValue {
 public:
  template <typename T,
            typename = std::enable_if_t<!std::is_same_v<std::decay_t<T>, CustomEncodableValue>>>
  explicit CustomEncodableValue(T&& object)
      : object_(std::make_shared<std::decay_t<T>>(std::forward<T>(object))),
        type_(&typeid(std::decay_t<T>)) {}

  // No moves: what was moved from would lose its identity.
  CustomEncodableValue(const CustomEncodableValue&) = default;
  CustomEncodableValue& operator=(const CustomEncodableValue&) = default;

  template <typename T>
  bool Is() const {
    return *type_ == typeid(T);
  }

  // Null when the object is of another type.
  template <typename T>
  const T* GetIf() const {
    return Is<T>() ? static_cast<const T*>(object_.get()) : nullptr;
  }

  friend bool operator==(const CustomEncodableValue& a, const CustomEncodableValue& b) {
    return a.object_ == b.object_;
  }
  friend bool operator!=(const CustomEncodableValue& a, const CustomEncodableValue& b) {
    return !(a == b);
  }
  friend bool operator<(const CustomEncodableValue& a, const CustomEncodableValue& b) {
    return a.object_ < b.object_;
  }

 private:
  std::shared_ptr<const void> object_;  // Never null.
  const std::type_info* type_;
};

class FORGE_EXPORT EncodableValue {
 public:
  using Variant = std::variant<std::monostate,        // 0: null
                               bool,                  // 1
                               int32_t,               // 2
                               int64_t,               // 3
                               double,                // 4
                               std::string,           // 5: UTF-8
                               std::vector<uint8_t>,  // 6: bytes
                               std::vector<int32_t>,  // 7
                               std::vector<int64_t>,  // 8
                               std::vector<double>,   // 9
                               EncodableList,         // 10
                               EncodableMap,          // 11
                               CustomEncodableValue,  // 12
                               std::vector<float>>;   // 13

 private:
  template <typename T, typename V>
  struct IsOneOf;
  template <typename T, typename... Alternatives>
  struct IsOneOf<T, std::variant<Alternatives...>>
      : std::disjunction<std::is_same<T, Alternatives>...> {};
  template <typename T>
  static constexpr bool kIsAlternative = IsOneOf<std::decay_t<T>, Variant>::value;

 public:
  EncodableValue() = default;  // Null.

  template <typename T, typename = std::enable_if_t<kIsAlternative<T>>>
  EncodableValue(T&& value)  // NOLINT(google-explicit-constructor): a value is what it holds.
      : value_(std::in_place_type<std::decay_t<T>>, std::forward<T>(value)) {}

  // Builds the alternative in place.
  template <typename T, typename... Args>
  explicit EncodableValue(std::in_place_type_t<T> type, Args&&... args)
      : value_(type, std::forward<Args>(args)...) {}

  EncodableValue(const char* text)  // NOLINT(google-explicit-constructor)
      : value_(std::in_place_type<std::string>, text) {}
  EncodableValue(std::string_view text)  // NOLINT(google-explicit-constructor)
      : value_(std::in_place_type<std::string>, text) {}
  EncodableValue(std::nullptr_t) = delete;

  EncodableValue(const EncodableValue& other) : value_(other.CopyTo(this)) {}
  EncodableValue(EncodableValue&&) noexcept = default;
  ~EncodableValue() {
    if (HoldsValues()) DestroyTree();
  }

  // Through a temporary: `other` may be a part of this value.
  EncodableValue& operator=(const EncodableValue& other) { return *this = EncodableValue(other); }
  EncodableValue& operator=(EncodableValue&& other) noexcept {
    Variant taken(std::move(other.value_));
    value_ = std::move(taken);
    return *this;
  }

  // The index of the alternative, as numbered above.
  size_t GetIndex() const { return value_.index(); }
  bool IsNull() const { return Is<std::monostate>(); }

  // Is it a list or a map that is not empty?
  bool HoldsValues() const {
    const size_t container = value_.index() - kListIndex;  // Wraps around for what comes before.
    if (container > 1) return false;
    return container == 0 ? !GetIf<EncodableList>()->empty() : !GetIf<EncodableMap>()->empty();
  }

  template <typename T>
  bool Is() const {
    return std::holds_alternative<T>(value_);
  }

  template <typename T>
  const T& Get() const& {
    return std::get<T>(value_);
  }
  template <typename T>
  T& Get() & {
    return std::get<T>(value_);
  }
  template <typename T>
  T&& Get() && {
    return std::get<T>(std::move(value_));
  }

  // Null when the value holds another alternative.
  template <typename T>
  const T* GetIf() const& {
    return std::get_if<T>(&value_);
  }
  template <typename T>
  T* GetIf() & {
    return std::get_if<T>(&value_);
  }
  template <typename T>
  const T* GetIf() const&& = delete;  // It would point into what is gone.

  // Calls `visitor` with the alternative that is held.
  template <typename Visitor>
  decltype(auto) Visit(Visitor&& visitor) const {
    return std::visit(std::forward<Visitor>(visitor), value_);
  }
  template <typename Visitor>
  decltype(auto) Visit(Visitor&& visitor) {
    return std::visit(std::forward<Visitor>(visitor), value_);
  }

  // The value as a standard message: tag and payload, nothing around them. It reads back as it was
  // but for an empty typed list of 4- or 8-byte elements inside a message (docs/wire-format.md).
  forge::Buffer Serialize() const;

  // The first value of a standard message; what follows it is ignored.
  static EncodableValue Deserialize(const uint8_t* data, size_t size);
  static EncodableValue Deserialize(ForgeBufferView* view);
  static EncodableValue Deserialize(const forge::Buffer& buffer);

  friend bool operator==(const EncodableValue& a, const EncodableValue& b) {
    return AreEqual(a, b);
  }
  friend bool operator!=(const EncodableValue& a, const EncodableValue& b) { return !(a == b); }
  friend bool operator<(const EncodableValue& a, const EncodableValue& b);

 private:
  // Negative, zero or positive. One visit to each pair of nodes: built from `<` of the standard
  // containers it would compare nested keys twice at each level.
  static int Compare(const EncodableValue& a, const EncodableValue& b);
  static bool AreEqual(const EncodableValue& a, const EncodableValue& b);

  // A copy, which will lie in `to`; and the end of a value that holds values.
  Variant CopyTo(EncodableValue* to) const;
  Variant PutOffCopy(EncodableValue* to) const;
  Variant CopyDeepTree() const;
  void DestroyTree() noexcept;
  void PutOffDestruction() noexcept;
  void DestroyDeepTree() noexcept;
  EncodableValue& FirstHeld();

  static constexpr size_t kListIndex = 10;  // The map's is the next one.

  Variant value_;
};

// ------------------------------------------------------------------------------------------------

// Inline for the maps, whose keys are texts nearly always. The first byte tells most of them apart;
// an empty text has a zero there, which comes first.
inline bool operator<(const EncodableValue& a, const EncodableValue& b) {
  const auto* left = a.GetIf<std::string>();
  const auto* right = b.GetIf<std::string>();
  if (!left || !right) return EncodableValue::Compare(a, b) < 0;
  const auto first = static_cast<uint8_t>((*left)[0]);
  const auto other = static_cast<uint8_t>((*right)[0]);
  return first != other ? first < other : *left < *right;
}

}  // namespace cw
