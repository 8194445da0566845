// What is asked of values in more than one target.
#pragma once

#include <algorithm>
#include <string_view>
#include <vector>

#include "cw/admission.h"
#include "cw/encodable_value.h"
#include "fuzz/input.h"

namespace fuzz {

// Whether the value's encoding reads back as the value: it holds no empty list of wide elements,
// after which the reader skips what the writer does not write (docs/wire-format.md).
class ReadsBack {
 public:
  static bool Is(const cw::EncodableValue& value) { return value.Visit(ReadsBack()); }

  template <typename T>
  bool operator()(const T&) const {
    return true;
  }
  template <typename T>
  bool operator()(const std::vector<T>& list) const {
    return sizeof(T) == 1 || !list.empty();
  }
  bool operator()(const cw::EncodableList& list) const {
    return std::all_of(list.begin(), list.end(), Is);
  }
  bool operator()(const cw::EncodableMap& map) const {
    return std::all_of(map.begin(), map.end(),
                       [](const auto& entry) { return Is(entry.first) && Is(entry.second); });
  }
};

// Few bytes may declare so much that decoding them takes a thousand times as long as usual. False
// for those: they are not to be run again. Of them one in 1,024, chosen by its bytes, is run here,
// in and out: the search goes on, and a file is always treated alike.
inline bool IsLight(const uint8_t* data, size_t size) {
  using cw::EncodableValue;
  const auto decode = [&] { return EncodableValue::Deserialize(data, size); };
  {
    const Limits little(size_t{1} << 20, 200);
    if (Limits::Try(decode)) return true;
  }
  uint32_t hash = 2166136261u;
  for (size_t i = 0; i < size; ++i) hash = (hash ^ data[i]) * 16777619u;
  if (hash >> 22 != 0) return false;
  const Limits limits;
  if (cw::FindInadmissible(data, size)) {
    Limits::Try(decode);
  } else {
    decode().Serialize();
    FUZZ_CHECK(limits.WereKept());
  }
  return false;
}

}  // namespace fuzz
