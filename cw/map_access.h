// Access to the entries of maps by name, as plug-ins read the arguments of calls.
//
//   const std::optional<std::string> name = cw::Get<std::string>(call.GetArguments(), "name");
//   const int64_t limit = cw::Get<int64_t>(call.GetArguments(), "limit").value_or(100);
//   if (const cw::EncodableValue* files = cw::Find(map, "files")) ...
//
// A missing entry, an entry of another type and arguments that are no map all give the same result:
// null from Find, or an empty optional from Get.
//
// Threads:   plain functions; several threads may read one map at once.
// Ownership: Find returns a pointer into the map, valid until the entry is changed or removed. Get
//            returns a copy.
// Errors:    nothing is thrown except std::bad_alloc.
#pragma once

#include <cstdint>
#include <limits>
#include <optional>
#include <string_view>
#include <type_traits>

#include "cw/encodable_value.h"

namespace cw {

// Returns the entry whose key is this text, or null when there is none.
inline const EncodableValue* Find(const EncodableMap& map, std::string_view key) {
  const auto found = map.find(EncodableValue(key));
  return found == map.end() ? nullptr : &found->second;
}

// The same for a value that may be null or no map, such as the arguments of a call.
inline const EncodableValue* Find(const EncodableValue* value, std::string_view key) {
  const auto* map = value ? value->GetIf<EncodableMap>() : nullptr;
  return map ? Find(*map, key) : nullptr;
}

namespace details {

// The conversion behind Get. A null `value` gives an empty optional.
template <typename T>
std::optional<T> As(const EncodableValue* value) {
  if (!value) return {};
  if constexpr (std::is_same_v<T, int32_t> || std::is_same_v<T, int64_t>) {
    // Encoders choose the width by the number, so a reader takes both widths as one type.
    const auto* narrow = value->GetIf<int32_t>();
    if (narrow) return T{*narrow};
    const auto* wide = value->GetIf<int64_t>();
    if (!wide || *wide < std::numeric_limits<T>::min() || *wide > std::numeric_limits<T>::max()) {
      return {};
    }
    return static_cast<T>(*wide);
  } else {
    const auto* held = value->GetIf<T>();
    return held ? std::optional<T>(*held) : std::nullopt;
  }
}

}  // namespace details

// Returns a copy of the entry as the alternative T of EncodableValue. An integer entry of either
// width is read as int32_t or int64_t, whichever is asked for, if its value fits; otherwise the
// result is empty. No other types are converted: an integer is never read as a double.
template <typename T>
std::optional<T> Get(const EncodableMap& map, std::string_view key) {
  return details::As<T>(Find(map, key));
}
template <typename T>
std::optional<T> Get(const EncodableValue* value, std::string_view key) {
  return details::As<T>(Find(value, key));
}

}  // namespace cw
