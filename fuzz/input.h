// What the fuzzing targets share. What must hold is asserted, in every build type
// (cmake/build_settings.cmake).
#pragma once

#include <cassert>

#include "cw/admission.h"

namespace fuzz {

// Each target's own; nothing in it may exceed the limits: an allocation of 256 MiB, and 1,048,576
// lines on standard error. What is beyond throws std::bad_alloc, and fails even if that is caught.
void Run(const forge::Buffer& input);

// False when the function threw.
template <typename Function>
bool Try(Function&& function) {
  try {
    function();
    return true;
  } catch (const std::exception&) {
    return false;
  }
}

inline bool IsAdmissible(const forge::Buffer& bytes) {
  return !cw::FindInadmissible(bytes.GetData(), bytes.GetSize());
}

// Few bytes may declare so much that decoding them takes a thousand times as long as usual. False
// for those: they are not to be run again. Here they may exceed the limits if they are
// inadmissible.
bool IsLight(const forge::Buffer& bytes);

// Whether the value's encoding reads back as the value: it holds no empty list of wide elements,
// after which the reader skips what the writer does not write (docs/wire-format.md).
inline bool ReadsBack(const cw::EncodableValue& value) {
  bool needs_bytes = false;
  return !cw::FindInadmissible(value, {}, &needs_bytes) && !needs_bytes;
}

}  // namespace fuzz
