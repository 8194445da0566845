// The type bytes of the standard encoding.
#pragma once

#include <cstddef>
#include <cstdint>

namespace cw {
namespace {  // Unnamed, as the text of the codec's assertion has it.

enum class EncodedType : uint8_t {
  kNull = 0,
  kTrue = 1,
  kFalse = 2,
  kInt32 = 3,
  kInt64 = 4,
  kLargeInteger = 5,  // Read as text, never written.
  kFloat64 = 6,
  kString = 7,
  kUInt8List = 8,
  kInt32List = 9,
  kInt64List = 10,
  kFloat64List = 11,
  kList = 12,
  kMap = 13,
  kFloat32List = 14,
  kCustom = 255,  // Has no encoding.
};

constexpr size_t kFirstLongSize = 254;  // Below it a size is one byte; from here on
constexpr uint8_t kSize16Marker = 254;  // this marker and two bytes,
constexpr size_t kFirstHugeSize = 1u << 16;
constexpr uint8_t kSize32Marker = 255;  // and from here on this one and four.

}  // namespace
}  // namespace cw
