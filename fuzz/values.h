// What is asked of values in more than one target.
#pragma once

#include "cw/admission.h"
#include "cw/encodable_value.h"
#include "fuzz/input.h"

namespace fuzz {

inline bool IsAdmissible(const forge::Buffer& bytes) {
  return !cw::FindInadmissible(bytes.GetData(), bytes.GetSize());
}

// Whether the value's encoding reads back as the value: it holds no empty list of wide elements,
// after which the reader skips what the writer does not write (docs/wire-format.md).
inline bool ReadsBack(const cw::EncodableValue& value) {
  bool needs_bytes = false;
  return !cw::FindInadmissible(value, {}, &needs_bytes) && !needs_bytes;
}

// Few bytes may declare so much that decoding them takes a thousand times as long as usual. False
// for those: they are not to be run again. They are run here, in and out; where libFuzzer searches
// only the first of 1,024, so that the search goes on.
inline bool IsLight(const forge::Buffer& bytes) {
  const auto run = [&] { cw::EncodableValue::Deserialize(bytes).Serialize(); };
  Limit(size_t{4} << 20, 100);
  const bool is_light = Try(run);
  Limit();
  static unsigned heavy = 0;
  if (is_light || (TAVO_FUZZ && heavy++ % 1024 != 0)) return is_light;
  const bool has_worked = Try(run);
  if (IsAdmissible(bytes)) {
    FUZZ_CHECK(has_worked);
    CheckLimits();
  }
  Limit();
  return false;
}

}  // namespace fuzz
