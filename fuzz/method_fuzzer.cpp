// Method calls and result envelopes. These bytes come from the embedder, which is trusted: nothing
// looks at them first, so the limits may be exceeded.
#include <optional>

#include "cw/standard_method_codec.h"
#include "fuzz/values.h"

using cw::EncodableValue;
using forge::Buffer;

static const auto& codec = cw::StandardMethodCodec::GetInstance();

static void CheckCall(const Buffer& input) {
  const auto call = codec.DecodeMethodCall(input.GetData(), input.GetSize());
  if (!call) return;
  FUZZ_CHECK(call->GetArguments());
  const Buffer bytes = codec.EncodeMethodCall(*call);
  if (!fuzz::ReadsBack(*call->GetArguments())) return;
  const auto again = codec.DecodeMethodCall(bytes.GetData(), bytes.GetSize());
  FUZZ_CHECK(again && again->GetMethodName() == call->GetMethodName());
  FUZZ_CHECK(codec.EncodeMethodCall(*again) == bytes);
}

// Keeps what it is told: as its envelope, if that reads back.
struct Told final : cw::MethodResult<EncodableValue> {
  void SuccessInternal(const EncodableValue* result) override {
    ++count;
    if (result && !fuzz::ReadsBack(*result)) return;
    envelope = codec.EncodeSuccessEnvelope(result);
  }
  void ErrorInternal(const std::string& code, const std::string& message,
                     const EncodableValue* details) override {
    ++count;
    if (details && !fuzz::ReadsBack(*details)) return;
    envelope = codec.EncodeErrorEnvelope(code, message, details);
  }
  void NotImplementedInternal() override { ++count; }

  bool Decode(const Buffer& bytes) {
    return codec.DecodeAndProcessResponseEnvelope(bytes.GetData(), bytes.GetSize(), this);
  }

  int count = 0;
  std::optional<Buffer> envelope;
};

static void CheckEnvelope(const Buffer& input) {
  Told first, again;
  bool is_envelope = false;
  const bool has_returned = fuzz::Try([&] { is_envelope = first.Decode(input); });
  FUZZ_CHECK(first.count <= 1);  // What it does itself may exceed the limits.
  FUZZ_CHECK(!has_returned || first.count == is_envelope);
  if (!first.envelope) return;
  again.Decode(*first.envelope);
  FUZZ_CHECK(again.count == 1 && again.envelope == first.envelope);
}

void fuzz::Run(const Buffer& input) {
  Limit(size_t{16} << 20, 500);
  Try([&] { CheckCall(input); });
  Try([&] { CheckEnvelope(input); });
  Limit();
}
