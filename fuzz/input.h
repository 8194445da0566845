// What the fuzzing targets share: choices drawn from the input, the check of an invariant, and the
// limits that the code under test has to keep.
#pragma once

#include <cstddef>
#include <cstdint>
#include <exception>
#include <vector>

// Ends the process, and with it the search, when the condition does not hold. It stays in every
// build type.
#define FUZZ_CHECK(condition) \
  ((condition) ? static_cast<void>(0) : ::fuzz::Fail(#condition, __FILE__, __LINE__))

namespace fuzz {

[[noreturn]] void Fail(const char* condition, const char* file, int line);

// Reads the input as choices; past its end everything is zero.
class Choices {
 public:
  Choices(const uint8_t* data, size_t size) : data_(data), left_(size) {}

  bool IsEmpty() const { return left_ == 0; }

  uint8_t Byte() {
    if (left_ == 0) return 0;
    --left_;
    return *data_++;
  }

  // 0 to limit - 1, evenly enough.
  uint32_t Below(uint32_t limit) {
    const uint32_t high = limit > 256 ? Byte() : 0;
    return (high << 8 | Byte()) % limit;
  }

  std::vector<uint8_t> Rest() { return {data_, data_ + left_}; }

 private:
  const uint8_t* data_;
  size_t left_;
};

// What one input may cost, counted from the construction on. Allocations (operator new) beyond
// `most_bytes` throw std::bad_alloc. Lines on standard error beyond `most_lines` throw, too: each
// failed read writes one, so they bound the time of a decoder that believes what it reads. Nothing
// is written to standard output and standard error by way of their streams.
class Limits {
 public:
  explicit Limits(size_t most_bytes = size_t{256} << 20, size_t most_lines = size_t{1} << 21);

  // False when anything was refused, be it that the code under test told nobody. While libFuzzer
  // searches, an input may also take no more than a second of the processor.
  bool WereKept() const;

  // Runs what may exceed the limits, or throw something else. False when it threw.
  template <typename Function>
  static bool Try(Function&& function) {
    try {
      function();
      return true;
    } catch (const std::exception&) {
      return false;
    }
  }

 private:
  double begin_;
};

}  // namespace fuzz
