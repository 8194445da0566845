// The dynamic value of every message, codec and payload.
//
//   cw::EncodableMap size = {{"width", 1920}, {"height", 1080}};
//   cw::EncodableValue value = std::move(size);
//   if (const auto* map = value.GetIf<cw::EncodableMap>()) ...
//   if (value.Is<std::string>()) Use(value.Get<std::string>());
//
//   const forge::Buffer bytes = value.Serialize();
//   const auto copy = cw::EncodableValue::Deserialize(bytes);
//
// A value is made from exactly the types of the alternatives, and from texts (a null one throws
// std::logic_error): an `unsigned` or a pointer does not compile, nor does a `long` or `long long`
// that is no int32_t or int64_t on the target. Copy a list by `=` or parentheses: braces make a
// list that holds the list.
//
// Order: values are ordered by alternative first (the index below), so int32_t 5 < int64_t 1.
// Values of one alternative are ordered by their content, sequences lexicographically. NaN is
// equivalent to every double, so doubles as keys may merge. Custom values are ordered by the
// address of their object.
//
// Depth: a tree may nest as deep as memory allows. Reading, writing, copying, comparing and
// destroying it need no stack that grows with its depth. A value may be assigned from a part of
// itself.
//
// Threads:   a plain value, no locking; const operations may run concurrently.
// Ownership: a value owns its content; lists and maps own their elements. Custom values share their
//            object. A pointer or reference into a value is valid until the value is changed or
//            destroyed.
// Errors:    Get throws std::bad_variant_access. Allocation failures propagate. Deserialize reports
//            nothing else to the caller: null data and empty data give the null value, malformed
//            data gives zeros and nulls. Only a huge declared count throws
//            (standard_codec_serializer.h). Serialize of a custom value ends the process.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
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

// An object of the application's own type, for codec extensions. Copies share the object, which
// never moves: its address is the value's identity in every comparison. The object is destroyed
// with its last copy.
class FORGE_EXPORT CustomEncodableValue {
 public:
  // Copies or moves `object` to the heap.
  template <typename T,
            typename = std::enable_if_t<!std::is_same_v<std::decay_t<T>, CustomEncodableValue>>>
  explicit CustomEncodableValue(T&& object)
      : object_(std::make_shared<std::decay_t<T>>(std::forward<T>(object))),
        type_(&typeid(std::decay_t<T>)) {}

  // There is no move: a value without an object would have no identity.
  CustomEncodableValue(const CustomEncodableValue&) = default;
  CustomEncodableValue& operator=(const CustomEncodableValue&) = default;

  // Returns whether the object's type is exactly T; a base class of it does not count.
  template <typename T>
  bool Is() const {
    return *type_ == typeid(T);
  }

  // Returns the object, or null when its type is not exactly T.
  template <typename T>
  const T* GetIf() const {
    return Is<T>() ? static_cast<const T*>(object_.get()) : nullptr;
  }

  // Two values are equal when they share one object. The objects themselves are never compared.
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

// A value of one of the alternatives below. A moved-from value may be assigned to or destroyed.
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
  EncodableValue() = default;  // The null value.

  // Holds `value`, which is copied or moved in.
  template <typename T, typename = std::enable_if_t<kIsAlternative<T>>>
  EncodableValue(T&& value)  // NOLINT(google-explicit-constructor): a value is what it holds.
      : value_(std::in_place_type<std::decay_t<T>>, std::forward<T>(value)) {}

  // Builds the alternative in place: EncodableValue(std::in_place_type<std::string>, 3, 'x').
  template <typename T, typename... Args>
  explicit EncodableValue(std::in_place_type_t<T> type, Args&&... args)
      : value_(type, std::forward<Args>(args)...) {}

  // Hold a copy of the text. A null `const char*` throws std::logic_error.
  EncodableValue(const char* text)  // NOLINT(google-explicit-constructor)
      : value_(std::in_place_type<std::string>, text) {}
  EncodableValue(std::string_view text)  // NOLINT(google-explicit-constructor)
      : value_(std::in_place_type<std::string>, text) {}
  EncodableValue(std::nullptr_t) = delete;  // The null value is EncodableValue().

  EncodableValue(const EncodableValue& other) : value_(other.CopyTo(this)) {}
  EncodableValue(EncodableValue&&) noexcept = default;
  ~EncodableValue() {
    const size_t beyond_leaves = value_.index() - kListIndex;  // Wraps around for leaves.
    if (beyond_leaves <= kCustomIndex - kListIndex) Destroy();
  }

  // Both assignments go through a temporary, because `other` may be a part of this value.
  EncodableValue& operator=(const EncodableValue& other) { return *this = EncodableValue(other); }
  EncodableValue& operator=(EncodableValue&& other) noexcept {
    Variant taken(std::move(other.value_));
    value_ = std::move(taken);
    return *this;
  }

  // The index of the alternative, as numbered above.
  size_t GetIndex() const { return value_.index(); }
  bool IsNull() const { return Is<std::monostate>(); }

  // Returns whether the value is a list or a map that is not empty.
  bool HoldsValues() const {
    const size_t container = value_.index() - kListIndex;  // Wraps around for a smaller index.
    if (container > 1) return false;
    return container == 0 ? !GetIf<EncodableList>()->empty() : !GetIf<EncodableMap>()->empty();
  }

  // Returns whether the value holds exactly this alternative.
  // Returns the content as this alternative, or throws std::bad_variant_access.
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

  // Returns the content as this alternative, or null when the value holds another one.
  template <typename T>
  const T* GetIf() const& {
    return std::get_if<T>(&value_);
  }
  template <typename T>
  T* GetIf() & {
    return std::get_if<T>(&value_);
  }
  template <typename T>
  const T* GetIf() const&& = delete;  // The result would point into a destroyed temporary.

  // Calls `visitor` with the content, as the alternative that is held, and returns its result.
  template <typename Visitor>
  decltype(auto) Visit(Visitor&& visitor) const {
    return std::visit(std::forward<Visitor>(visitor), value_);
  }
  template <typename Visitor>
  decltype(auto) Visit(Visitor&& visitor) {
    return std::visit(std::forward<Visitor>(visitor), value_);
  }

  // Encodes the value as a standard message: the tag and the payload, nothing around them. The
  // bytes read back as the same value, with one exception: inside a message, an empty typed list of
  // 4- or 8-byte elements may not (docs/wire-format.md).
  forge::Buffer Serialize() const;

  // Decodes the first value of a standard message; bytes after it are ignored. Missing bytes read
  // as zeros and nulls, with a line on standard error for each failed read. Null data, a null view
  // and an empty buffer give the null value without a line. Of a view, a field that its declared
  // size does not cover counts as null or 0.
  static EncodableValue Deserialize(const uint8_t* data, size_t size);
  static EncodableValue Deserialize(ForgeBufferView* view);
  static EncodableValue Deserialize(const forge::Buffer& buffer);

  // Comparison by alternative and content; see "Order" above.
  friend bool operator==(const EncodableValue& a, const EncodableValue& b) {
    return AreEqual(a, b);
  }
  friend bool operator!=(const EncodableValue& a, const EncodableValue& b) { return !(a == b); }
  friend bool operator<(const EncodableValue& a, const EncodableValue& b);

 private:
  // Returns a negative number, zero or a positive number. Each pair of nodes is visited once: with
  // the containers' own `<`, nested keys would be compared twice at each level.
  static int Compare(const EncodableValue& a, const EncodableValue& b);
  static bool AreEqual(const EncodableValue& a, const EncodableValue& b);

  // CopyTo returns a copy of the content, which the caller stores in `to`. Destroy ends the content
  // of a list, a map or a custom value. The others are their steps (encodable_value.cpp).
  Variant CopyTo(EncodableValue* to) const;
  Variant PutOffCopy(EncodableValue* to) const;
  Variant CopyDeepTree() const;
  void Destroy() noexcept;
  void DestroyCustom() noexcept;
  void DestroyTree() noexcept;
  void PutOffDestruction() noexcept;
  void DestroyDeepTree() noexcept;
  EncodableValue& FirstHeld();

  static constexpr size_t kListIndex = 10;  // The index of the map is the next one.
  static constexpr size_t kCustomIndex = 12;

  Variant value_;
};

// ------------------------------------------------------------------------------------------------

namespace details {

// Compares the first `size` bytes, which are one to two words: their first and their last word.
template <typename Word>
inline int CompareWords(const char* a, const char* b, size_t size) {
  for (const size_t at : {size_t{0}, size - sizeof(Word)}) {
    Word left = 0;
    Word right = 0;
    std::memcpy(&left, a + at, sizeof left);
    std::memcpy(&right, b + at, sizeof right);
    if (left == right) continue;
    constexpr int kUnused = 64 - 8 * sizeof(Word);
    return __builtin_bswap64(left) >> kUnused < __builtin_bswap64(right) >> kUnused ? -1 : 1;
  }
  return 0;
}

// The same as a < b. Texts of the length of most keys are compared without a call.
inline bool IsTextLess(const std::string& a, const std::string& b) {
  const size_t size = std::min(a.size(), b.size());
  int order = 0;
  if (size > 2 * sizeof(uint64_t) || size < sizeof(uint32_t)) return a < b;
  if (size >= sizeof(uint64_t)) {
    order = CompareWords<uint64_t>(a.data(), b.data(), size);
  } else {
    order = CompareWords<uint32_t>(a.data(), b.data(), size);
  }
  return order != 0 ? order < 0 : a.size() < b.size();
}

}  // namespace details

// Inline for maps, whose keys are nearly always texts. The first byte tells most texts apart. An
// empty text has a zero at that place, which is smaller than any other byte.
inline bool operator<(const EncodableValue& a, const EncodableValue& b) {
  const auto* left = a.GetIf<std::string>();
  const auto* right = b.GetIf<std::string>();
  if (!left || !right) return EncodableValue::Compare(a, b) < 0;
  const auto first = static_cast<uint8_t>((*left)[0]);
  const auto other = static_cast<uint8_t>((*right)[0]);
  return first != other ? first < other : details::IsTextLess(*left, *right);
}

}  // namespace cw
