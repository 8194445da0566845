// Messages, from Base64 text and from values. The first byte chooses: the rest is the text, or the
// bytes that it encodes.
#include <string>
#include <utility>

#include "cw/admission.h"
#include "flrpc/message.h"
#include "fuzz/input.h"
#include "fuzz/values.h"

namespace {

using cw::EncodableValue;
using flrpc::Message;

// An accepted message survives, and its two ways to be encoded agree.
void CheckSurvives(const Message& message) {
  const EncodableValue value = message.ToEncodable();
  const std::string text = message.ToBase64();
  FUZZ_CHECK(value.Serialize().ToBase64() == text);
  if (!fuzz::ReadsBack::Is(value)) return;
  FUZZ_CHECK(Message::FromBase64(text).ToBase64() == text);
  if (message.IsEmpty()) return;  // Null in the encoding alone.
  const Message again = Message::FromEncodable(value);
  FUZZ_CHECK(again.GetType() == message.GetType());
  FUZZ_CHECK(again.ToBase64() == text);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::Choices choices(data, size);
  const bool is_text = choices.Byte() % 2 == 1;
  const std::vector<uint8_t> rest = choices.Rest();
  std::string text =
      is_text ? std::string(rest.begin(), rest.end()) : forge::Buffer(rest).ToBase64();
  const forge::Buffer bytes = forge::Buffer::FromBase64(text);
  if (!fuzz::IsLight(bytes.GetData(), bytes.GetSize())) return 0;
  const fuzz::Limits limits;
  const Message message = Message::FromBase64(text);
  CheckSurvives(message);
  if (!is_text && !cw::FindInadmissible(rest.data(), rest.size())) {
    const EncodableValue value = EncodableValue::Deserialize(rest.data(), rest.size());
    const Message made = Message::FromEncodable(value);
    FUZZ_CHECK(made.ToBase64() == Message::FromEncodable(EncodableValue(value)).ToBase64());
    if (!value.IsNull()) FUZZ_CHECK(made.ToBase64() == message.ToBase64());
  }
  FUZZ_CHECK(Message::FromBase64(std::move(text)).ToBase64() == message.ToBase64());
  FUZZ_CHECK(limits.WereKept());
  return 0;
}
