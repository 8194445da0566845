// Method calls and result envelopes. These bytes come from the embedder, which is trusted: nothing
// looks at them first, so the limits may be exceeded.
#include "cw/standard_method_codec.h"
#include "fuzz/input.h"

using cw::EncodableValue;
using forge::Buffer;

static const auto& codec = cw::StandardMethodCodec::GetInstance();

static auto Decode(const Buffer& bytes) {
  return codec.DecodeMethodCall(bytes.GetData(), bytes.GetSize());
}

static void CheckCall(const Buffer& input) {
  const auto call = Decode(input);
  if (!call) return;
  const auto* arguments = call->GetArguments();
  assert(arguments);
  const Buffer bytes = codec.EncodeMethodCall(*call);
  if (!fuzz::ReadsBack(*arguments)) return;
  const auto again = Decode(bytes);
  assert(again);
  assert(again->GetMethodName() == call->GetMethodName());
  assert(codec.EncodeMethodCall(*again) == bytes);
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

  bool Decode(const Buffer& input) {
    const uint8_t* data = input.GetData();
    return codec.DecodeAndProcessResponseEnvelope(data, input.GetSize(), this);
  }

  int count = 0;
  Buffer envelope;  // Empty: none.
};

static void CheckEnvelope(const Buffer& input) {
  Told first, again;
  bool is_envelope = false;
  const auto decode = [&] { is_envelope = first.Decode(input); };
  const bool returned = fuzz::Try(decode);
  assert(first.count <= 1);  // What it does itself may exceed the limits.
  assert(!returned || first.count == is_envelope);
  if (first.envelope == Buffer()) return;
  again.Decode(first.envelope);
  assert(again.count == 1 && again.envelope == first.envelope);
}

void fuzz::Run(const Buffer& input) {
  Limit(size_t{16} << 20, 500);
  Try([&] { CheckCall(input); });
  Try([&] { CheckEnvelope(input); });
  Limit();
}
