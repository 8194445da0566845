// The type bytes of the standard encoding.
#pragma once

#include <cstddef>
#include <cstdint>

namespace cw {
namespace {  // Unnamed, because the text of the codec's assertion shows the namespace.

enum class EncodedType : uint8_t {
  kNull = 0,
  kTrue = 1,
  kFalse = 2,
  kInt32 = 3,
  kInt64 = 4,
  kLargeInteger = 5,  // Read as a text, never written.
  kFloat64 = 6,
  kString = 7,
  kUInt8List = 8,
  kInt32List = 9,
  kInt64List = 10,
  kFloat64List = 11,
  kList = 12,
  kMap = 13,
  kFloat32List = 14,
  kCustom = 255,  // There is no encoding of custom values.
};

// Smaller sizes are one byte. Sizes from kFirstLongSize on are kSize16Marker and two bytes, sizes
// from kFirstHugeSize on are kSize32Marker and four bytes.
constexpr size_t kFirstLongSize = 254;
constexpr uint8_t kSize16Marker = 254;
constexpr size_t kFirstHugeSize = 1u << 16;
constexpr uint8_t kSize32Marker = 255;

}  // namespace
}  // namespace cw
