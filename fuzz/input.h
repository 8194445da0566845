// What the fuzzing targets share: the check of an invariant, and the limits that the code under
// test has to keep.
#pragma once

#include <exception>

#include "forge/buffer.h"

// Ends the process, and with it the search, when the condition does not hold, in every build type.
#define FUZZ_CHECK(condition) \
  ((condition) ? static_cast<void>(0) : ::fuzz::Fail(#condition, __FILE__, __LINE__))

namespace fuzz {

[[noreturn]] void Fail(const char* condition, const char* file, int line);

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

}  // namespace fuzz
