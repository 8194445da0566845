// What the fuzzing targets share. What must hold is asserted, in every build type
// (cmake/build_settings.cmake).
#pragma once

#include <cassert>

#include "cw/admission.h"

namespace fuzz {

// Each target's own; nothing in it may exceed the limits.
void Run(const forge::Buffer& input);

// Limits anew what is done from now on. Allocations (operator new) beyond `most_bytes` throw
// std::bad_alloc. So do lines on standard error beyond `most_lines`: each failed read writes one,
// so they bound the time of a decoder that believes what it reads. Nothing is written to standard
// output and standard error by way of their streams.
void Limit(size_t most_bytes = size_t{256} << 20, size_t most_lines = size_t{1} << 20);

// Fails when anything was refused, be it that the code under test told nobody. While libFuzzer
// searches, an input may also take no more than a second of the processor.
void CheckLimits();

// Runs what may exceed the limits, or throw something else. False when it threw.
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
// for those: they are not to be run again. They are run here, in and out; where libFuzzer searches
// only the first of 1,024, so that the search goes on.
bool IsLight(const forge::Buffer& bytes);

// Whether the value's encoding reads back as the value: it holds no empty list of wide elements,
// after which the reader skips what the writer does not write (docs/wire-format.md).
inline bool ReadsBack(const cw::EncodableValue& value) {
  bool needs_bytes = false;
  return !cw::FindInadmissible(value, {}, &needs_bytes) && !needs_bytes;
}

}  // namespace fuzz
