// Method calls and result envelopes. These bytes come from the embedder, which is trusted: nothing
// looks at them first, so the limits may be exceeded.
#include <optional>
#include <string>

#include "cw/standard_method_codec.h"
#include "fuzz/values.h"

namespace {

using cw::EncodableValue;

const cw::StandardMethodCodec& codec = cw::StandardMethodCodec::GetInstance();

void CheckCall(const uint8_t* data, size_t size) {
  const auto call = codec.DecodeMethodCall(data, size);
  if (!call) return;
  FUZZ_CHECK(call->GetArguments());
  const forge::Buffer bytes = codec.EncodeMethodCall(*call);
  if (!fuzz::ReadsBack(*call->GetArguments())) return;
  const auto again = codec.DecodeMethodCall(bytes.GetData(), bytes.GetSize());
  FUZZ_CHECK(again && again->GetMethodName() == call->GetMethodName());
  FUZZ_CHECK(codec.EncodeMethodCall(*again) == bytes);
}

// Keeps what it is told: as its envelope, if that reads back.
class Recorder final : public cw::MethodResult<EncodableValue> {
 public:
  int count = 0;
  std::optional<forge::Buffer> envelope;

 private:
  void SuccessInternal(const EncodableValue* result) override {
    ++count;
    if (!result || fuzz::ReadsBack(*result)) envelope = codec.EncodeSuccessEnvelope(result);
  }
  void ErrorInternal(const std::string& code, const std::string& message,
                     const EncodableValue* details) override {
    ++count;
    if (details && !fuzz::ReadsBack(*details)) return;
    envelope = codec.EncodeErrorEnvelope(code, message, details);
  }
  void NotImplementedInternal() override { ++count; }
};

void CheckEnvelope(const uint8_t* data, size_t size) {
  Recorder first, again;
  bool is_envelope = false;
  const bool has_returned = fuzz::Limits::Try(
      [&] { is_envelope = codec.DecodeAndProcessResponseEnvelope(data, size, &first); });
  FUZZ_CHECK(first.count <= 1);  // The recorder itself may exceed the limits.
  FUZZ_CHECK(!has_returned || first.count == (is_envelope ? 1 : 0));
  if (!first.envelope) return;
  codec.DecodeAndProcessResponseEnvelope(first.envelope->GetData(), first.envelope->GetSize(),
                                         &again);
  FUZZ_CHECK(again.count == 1 && again.envelope == first.envelope);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const fuzz::Limits limits(size_t{16} << 20, 1000);
  fuzz::Limits::Try([&] { CheckCall(data, size); });
  fuzz::Limits::Try([&] { CheckEnvelope(data, size); });
  return 0;
}
