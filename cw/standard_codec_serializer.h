// The standard codec: values to bytes and back. docs/wire-format.md describes the bytes.
//
// A codec extension is a subclass that overrides WriteValue and ReadValueOfType for its own tags
// and custom values and calls these for the rest. Nested values go through the overridden
// operations, so that an extension applies inside lists and maps, too.
//
// Threads: any; the serializer has no state. A stream is used by one thread.
// Errors:  malformed input gives zeros and nulls where bytes are missing, with a line on standard
//          error for each failed read and each unknown tag. Few bytes may declare much: that costs
//          time and memory, so check the bytes of another process first (cw/admission.h). Depth
//          needs no stack, except in an extension, which recurses once a level. Allocation failures
//          propagate; a list of 2^26 elements or more is std::length_error ("vector::reserve").
//          Writing a custom value fails an assertion and ends the process.
#pragma once

#include <cstddef>
#include <cstdint>

#include "cw/byte_streams.h"
#include "cw/encodable_value.h"
#include "forge/export.h"

namespace cw {

// Virtual operations grow only at the end.
class FORGE_EXPORT StandardCodecSerializer {
 public:
  virtual ~StandardCodecSerializer();
  StandardCodecSerializer(const StandardCodecSerializer&) = delete;
  StandardCodecSerializer& operator=(const StandardCodecSerializer&) = delete;

  // The one without extensions; never destroyed.
  static const StandardCodecSerializer& GetInstance();

  // A tag byte and what ReadValueOfType makes of it.
  EncodableValue ReadValue(ByteStreamReader* stream) const;

  virtual void WriteValue(const EncodableValue& value, ByteStreamWriter* stream) const;

 protected:
  StandardCodecSerializer();

  // Reads what follows the tag byte `type`.
  virtual EncodableValue ReadValueOfType(uint8_t type, ByteStreamReader* stream) const;

  // The variable-length count in front of texts, lists and maps.
  void WriteSize(uint32_t size, ByteStreamWriter* stream) const;
  uint32_t ReadSize(ByteStreamReader* stream) const;

  // The payload of a typed list, the count included. T is uint8_t, int32_t, int64_t, double, float.
  template <typename T>
  EncodableValue ReadVector(ByteStreamReader* stream) const;
};

extern template FORGE_EXPORT EncodableValue
StandardCodecSerializer::ReadVector<uint8_t>(ByteStreamReader*) const;
extern template FORGE_EXPORT EncodableValue
StandardCodecSerializer::ReadVector<int32_t>(ByteStreamReader*) const;
extern template FORGE_EXPORT EncodableValue
StandardCodecSerializer::ReadVector<int64_t>(ByteStreamReader*) const;
extern template FORGE_EXPORT EncodableValue
StandardCodecSerializer::ReadVector<double>(ByteStreamReader*) const;
extern template FORGE_EXPORT EncodableValue
StandardCodecSerializer::ReadVector<float>(ByteStreamReader*) const;

}  // namespace cw
