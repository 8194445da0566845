// The standard codec: values to bytes and back. docs/wire-format.md describes the bytes.
//
//   class DateCodec final : public cw::StandardCodecSerializer {
//    public:
//     void WriteValue(const cw::EncodableValue& value, cw::ByteStreamWriter* stream) const
//     override;
//    protected:
//     cw::EncodableValue ReadValueOfType(uint8_t type, cw::ByteStreamReader* stream) const
//     override;
//   };
//
// A codec extension is such a subclass. It handles its own tags and custom values, and calls the
// operations of this class for the rest. Nested values go through the overridden operations, so an
// extension applies inside lists and maps, too.
//
// Threads:   any; the serializer has no state. A stream is used by one thread.
// Ownership: the values and streams are borrowed until the call returns. They must not be null.
// Errors:    malformed input gives zeros and nulls where bytes are missing, with a line on standard
//            error for each failed read and each unknown tag. A few bytes may declare much, which
//            costs time and memory: check the bytes of another process first (cw/admission.h).
//            Depth needs no stack, except in an extension, which recurses once for each level.
//            Allocation failures propagate. Reading a list of 2^26 elements or more throws
//            std::length_error ("vector::reserve"), as does writing anything of 2^32 elements or
//            more. Writing a custom value fails an assertion and ends the process.
#pragma once

#include <cstddef>
#include <cstdint>

#include "cw/byte_streams.h"
#include "cw/encodable_value.h"
#include "forge/export.h"

namespace cw {

// The serializer without extensions, and the base class of those with. Virtual operations grow only
// at the end.
class FORGE_EXPORT StandardCodecSerializer {
 public:
  virtual ~StandardCodecSerializer();
  StandardCodecSerializer(const StandardCodecSerializer&) = delete;
  StandardCodecSerializer& operator=(const StandardCodecSerializer&) = delete;

  // Returns the serializer without extensions, which is never destroyed.
  static const StandardCodecSerializer& GetInstance();

  // Reads a tag byte and then, by ReadValueOfType, its value. At the stream's end the tag is 0: the
  // result is the null value.
  EncodableValue ReadValue(ByteStreamReader* stream) const;

  // Writes the tag byte of the value and its payload; of a list or a map, all values in it.
  virtual void WriteValue(const EncodableValue& value, ByteStreamWriter* stream) const;

 protected:
  StandardCodecSerializer();

  // Reads what follows the tag byte `type`. An unknown tag gives the null value and a line on
  // standard error. Of equal keys in a map, the first one counts.
  virtual EncodableValue ReadValueOfType(uint8_t type, ByteStreamReader* stream) const;

  // The variable-length count in front of texts, lists and maps: one, three or five bytes.
  void WriteSize(uint32_t size, ByteStreamWriter* stream) const;
  uint32_t ReadSize(ByteStreamReader* stream) const;

  // Reads the payload of a typed list, including the count. T is uint8_t, int32_t, int64_t, double
  // or float.
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
