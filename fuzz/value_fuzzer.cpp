// Values: bytes, decoded, copied, compared, encoded and decoded again. Behind the admission scan
// nothing may exceed the limits; the bare codec may, and must come to no harm by it.
#include "fuzz/values.h"

namespace {

using cw::EncodableValue;

// Equivalent in the order, and equal unless a NaN is in it.
void CheckSame(const EncodableValue& value, const EncodableValue& other) {
  FUZZ_CHECK(!(value < other) && !(other < value));
  FUZZ_CHECK((value == other) == (value == value));
}

void CheckRoundTrip(const EncodableValue& value) {
  CheckSame(value, EncodableValue(value));
  const forge::Buffer bytes = value.Serialize();
  FUZZ_CHECK(bytes.GetSize() > 0);
  if (!fuzz::ReadsBack(value)) return;
  FUZZ_CHECK(!cw::FindInadmissible(bytes.GetData(), bytes.GetSize()));
  const EncodableValue again = EncodableValue::Deserialize(bytes);
  CheckSame(value, again);
  FUZZ_CHECK(again.Serialize() == bytes);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (!fuzz::IsLight(data, size)) return 0;
  const fuzz::Limits limits;
  const EncodableValue value = EncodableValue::Deserialize(data, size);
  if (!cw::FindInadmissible(data, size)) CheckRoundTrip(value);
  FUZZ_CHECK(limits.WereKept());
  return 0;
}
