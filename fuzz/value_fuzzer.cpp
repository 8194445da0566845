// Values: bytes, decoded, copied, compared, encoded and decoded again. Behind the admission scan
// nothing may exceed the limits; the bare codec may, and must come to no harm by it.
#include "fuzz/input.h"

using cw::EncodableValue;

// Equivalent in the order, and equal unless a NaN is in it.
static void CheckSame(const EncodableValue& value, const EncodableValue& other) {
  assert(!(value < other) && !(other < value));
  assert((value == other) == (value == value));
}

void fuzz::Run(const forge::Buffer& input) {
  if (!IsLight(input) || !IsAdmissible(input)) return;
  const auto value = EncodableValue::Deserialize(input);
  CheckSame(value, EncodableValue(value));
  if (!ReadsBack(value)) return;
  const forge::Buffer bytes = value.Serialize();
  assert(IsAdmissible(bytes));
  const auto again = EncodableValue::Deserialize(bytes);
  CheckSame(value, again);
  assert(again.Serialize() == bytes);
}
