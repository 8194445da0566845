// Messages, from Base64 text and from values. The first byte chooses: the rest is the text, or the
// bytes that it encodes.
#include <string>
#include <utility>

#include "flrpc/message.h"
#include "flrpc/sendable.h"
#include "fuzz/values.h"

namespace {

using cw::EncodableValue;
using flrpc::Message;

// An accepted message survives, and its two ways to be encoded agree. The sender's check says of it
// what the receiver's does.
void CheckSurvives(const Message& message) {
  const EncodableValue value = message.ToEncodable();
  const std::string text = message.ToBase64();
  const forge::Buffer bytes = value.Serialize();
  FUZZ_CHECK(bytes.ToBase64() == text);
  const bool is_refused = cw::FindInadmissible(bytes.GetData(), bytes.GetSize());
  FUZZ_CHECK(is_refused == (flrpc::details::FindUnsendable(message) != nullptr));
  if (is_refused || !fuzz::ReadsBack(value)) return;
  FUZZ_CHECK(Message::FromBase64(text).ToBase64() == text);
  if (message.IsEmpty()) return;  // Null in the encoding alone.
  const Message again = Message::FromEncodable(value);
  FUZZ_CHECK(again.GetType() == message.GetType());
  FUZZ_CHECK(again.ToBase64() == text);
}

// What is put into a message survives in it.
void CheckCarries(const EncodableValue& value) {
  const Message::ID id("id");
  for (const Message& message :
       {Message::CreateRequest(id, "call", value), Message::CreateResponse(id, value),
        Message::CreateError(id, 7, "why", value), Message::CreateNotification("news", value)}) {
    CheckSurvives(message);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::Choices choices(data, size);
  const bool is_text = choices.Byte() % 2 == 1;
  const std::vector<uint8_t> rest = choices.Rest();
  const std::string text =
      is_text ? std::string(rest.begin(), rest.end()) : forge::Buffer(rest).ToBase64();
  const forge::Buffer bytes = forge::Buffer::FromBase64(text);
  if (!fuzz::IsLight(bytes.GetData(), bytes.GetSize())) return 0;
  const fuzz::Limits limits;
  const Message message = Message::FromBase64(text);
  CheckSurvives(message);
  if (!is_text && !cw::FindInadmissible(rest.data(), rest.size())) {
    EncodableValue value = EncodableValue::Deserialize(rest.data(), rest.size());
    if (fuzz::ReadsBack(value)) CheckCarries(value);
    const Message made = Message::FromEncodable(value);
    FUZZ_CHECK(made.ToBase64() == message.ToBase64() || value.IsNull());
    FUZZ_CHECK(Message::FromEncodable(std::move(value)).ToBase64() == made.ToBase64());
  }
  FUZZ_CHECK(Message::FromBase64(std::string(text)).ToBase64() == message.ToBase64());
  FUZZ_CHECK(limits.WereKept());
  return 0;
}
