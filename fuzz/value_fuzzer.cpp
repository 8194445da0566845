// Values: bytes, decoded, copied, compared, encoded and decoded again. Behind the admission scan
// nothing may exceed the limits; the bare codec may, and must come to no harm by it.
#include "cw/standard_codec_serializer.h"
#include "fuzz/input.h"

using cw::EncodableValue;

// An extension reads value by value through the virtual operations, without the quick ways of the
// default serializer.
struct Extension final : cw::StandardCodecSerializer {};

static EncodableValue ReadSlowly(const forge::Buffer& input) {
  cw::ByteBufferStreamReader stream(input.GetData(), input.GetSize());
  return Extension().ReadValue(&stream);
}

// Equivalent in the order, and equal unless a NaN is in it.
static void CheckSame(const EncodableValue& value, const EncodableValue& other) {
  assert(!(value < other) && !(other < value));
  assert((value == other) == (value == value));
}

void fuzz::Run(const forge::Buffer& input) {
  if (!IsLight(input) || !IsAdmissible(input)) return;
  const auto value = EncodableValue::Deserialize(input);
  CheckSame(value, EncodableValue(value));
  CheckSame(value, ReadSlowly(input));
  if (!ReadsBack(value)) return;
  const forge::Buffer bytes = value.Serialize();
  assert(IsAdmissible(bytes));
  const auto again = EncodableValue::Deserialize(bytes);
  CheckSame(value, again);
  assert(again.Serialize() == bytes);
}
