// What is asked of values in more than one target.
#pragma once

#include <algorithm>
#include <functional>
#include <string_view>
#include <type_traits>

#include "cw/admission.h"
#include "cw/encodable_value.h"
#include "fuzz/input.h"

namespace fuzz {

// Whether the value's encoding reads back as the value: it holds no empty list of wide elements,
// after which the reader skips what the writer does not write (docs/wire-format.md).
inline bool ReadsBack(const cw::EncodableValue& value) {
  return value.Visit([](const auto& held) {
    using T = std::decay_t<decltype(held)>;
    if constexpr (std::is_same_v<T, cw::EncodableList>) {
      return std::all_of(held.begin(), held.end(), ReadsBack);
    } else if constexpr (std::is_same_v<T, cw::EncodableMap>) {
      return std::all_of(held.begin(), held.end(), [](const auto& entry) {
        return ReadsBack(entry.first) && ReadsBack(entry.second);
      });
    } else if constexpr (std::is_same_v<T, std::vector<int32_t>> ||
                         std::is_same_v<T, std::vector<int64_t>> ||
                         std::is_same_v<T, std::vector<double>> ||
                         std::is_same_v<T, std::vector<float>>) {
      return !held.empty();
    }
    return true;
  });
}

// Few bytes may declare so much that decoding them takes a thousand times as long as usual. False
// for those: they are not to be run again. They are run here, in and out; where libFuzzer searches
// only one in 1,024, so that the search goes on, chosen by its bytes.
inline bool IsLight(const uint8_t* data, size_t size) {
  using cw::EncodableValue;
  const auto decode = [&] { return EncodableValue::Deserialize(data, size); };
  {
    const Limits little(size_t{1} << 20, 200);
    if (Limits::Try(decode)) return true;
  }
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  if (TAVO_FUZZ && std::hash<std::string_view>()(bytes) % 1024 != 0) return false;
  const Limits limits;
  const bool has_worked = Limits::Try([&] { decode().Serialize(); });
  FUZZ_CHECK(cw::FindInadmissible(data, size) || (has_worked && limits.WereKept()));
  return false;
}

}  // namespace fuzz
