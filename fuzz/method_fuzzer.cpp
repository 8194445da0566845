// Method calls and result envelopes. These bytes come from the embedder, which is trusted: nothing
// looks at them first, so the limits may be exceeded.
#include <memory>
#include <optional>
#include <string>
#include <variant>

#include "cw/standard_method_codec.h"
#include "fuzz/input.h"
#include "fuzz/values.h"

namespace {

using cw::EncodableValue;

constexpr size_t kMostBytes = size_t{16} << 20;
constexpr size_t kMostLines = 1000;

const cw::StandardMethodCodec& GetCodec() { return cw::StandardMethodCodec::GetInstance(); }

EncodableValue ValueOf(const EncodableValue* value) { return value ? *value : EncodableValue(); }

// Writes down what it is told, as one value.
class Recorder final : public cw::MethodResult<EncodableValue> {
 public:
  int count = 0;
  EncodableValue told;

 private:
  void SuccessInternal(const EncodableValue* result) override {
    Tell(cw::EncodableList{true, ValueOf(result)});
  }
  void ErrorInternal(const std::string& code, const std::string& message,
                     const EncodableValue* details) override {
    Tell(cw::EncodableList{false, code, message, ValueOf(details)});
  }
  void NotImplementedInternal() override { Tell({}); }

  void Tell(cw::EncodableList&& what) {
    ++count;
    told = std::move(what);
  }
};

// What is put into an error comes out of its envelope.
void CheckErrorCarries(const std::string& text, const EncodableValue& details) {
  Recorder recorder;
  const forge::Buffer bytes = GetCodec().EncodeErrorEnvelope("code", text, &details);
  GetCodec().DecodeAndProcessResponseEnvelope(bytes.GetData(), bytes.GetSize(), &recorder);
  const EncodableValue expected(cw::EncodableList{false, "code", text, details});
  FUZZ_CHECK(recorder.told.Serialize() == expected.Serialize());
}

void CheckCall(const uint8_t* data, size_t size) {
  const auto call = GetCodec().DecodeMethodCall(data, size);
  if (!call) return;
  FUZZ_CHECK(call->GetArguments());
  const forge::Buffer bytes = GetCodec().EncodeMethodCall(*call);
  if (!fuzz::ReadsBack::Is(*call->GetArguments())) return;
  CheckErrorCarries(call->GetMethodName(), *call->GetArguments());
  const auto again = GetCodec().DecodeMethodCall(bytes.GetData(), bytes.GetSize());
  FUZZ_CHECK(again && again->GetMethodName() == call->GetMethodName());
  FUZZ_CHECK(GetCodec().EncodeMethodCall(*again) == bytes);
}

forge::Buffer EncodeEnvelope(const cw::EncodableList& told) {
  if (told[0].Get<bool>()) return GetCodec().EncodeSuccessEnvelope(&told[1]);
  return GetCodec().EncodeErrorEnvelope(told[1].Get<std::string>(), told[2].Get<std::string>(),
                                        &told[3]);
}

void CheckEnvelope(const uint8_t* data, size_t size) {
  Recorder recorder;
  bool is_envelope = false;
  const bool returned = fuzz::Limits::Try(
      [&] { is_envelope = GetCodec().DecodeAndProcessResponseEnvelope(data, size, &recorder); });
  FUZZ_CHECK(recorder.count == (returned && is_envelope ? 1 : 0));
  if (recorder.count == 0 || !fuzz::ReadsBack::Is(recorder.told)) return;
  const forge::Buffer bytes = EncodeEnvelope(recorder.told.Get<cw::EncodableList>());
  Recorder again;
  FUZZ_CHECK(GetCodec().DecodeAndProcessResponseEnvelope(bytes.GetData(), bytes.GetSize(), &again));
  FUZZ_CHECK(again.told.Serialize() == recorder.told.Serialize());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const fuzz::Limits limits(kMostBytes, kMostLines);
  fuzz::Limits::Try([&] { CheckCall(data, size); });
  fuzz::Limits::Try([&] { CheckEnvelope(data, size); });
  return 0;
}
