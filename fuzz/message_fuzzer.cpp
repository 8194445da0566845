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

// What is put into a message comes out of its text.
void CheckCarries(const EncodableValue& value) {
  const auto sent = [](const Message& message) { return Message::FromBase64(message.ToBase64()); };
  const forge::Buffer bytes = value.Serialize();  // A NaN in it is unequal to itself.
  const Message::ID id("id");
  const Message request = sent(Message::CreateRequest(id, "call", value));
  FUZZ_CHECK(request.GetRequest() && request.GetRequest()->id == id);
  FUZZ_CHECK(request.GetRequest()->method == "call");
  FUZZ_CHECK(request.GetRequest()->params.Serialize() == bytes);
  const Message response = sent(Message::CreateResponse(id, value));
  FUZZ_CHECK(response.GetResponse() && response.GetResponse()->id == id);
  FUZZ_CHECK(response.GetResponse()->GetResult()->Serialize() == bytes);
  const Message error = sent(Message::CreateError(7, "why", value));
  FUZZ_CHECK(error.GetError() && error.GetError()->code == 7 && error.GetError()->message == "why");
  FUZZ_CHECK(error.GetError()->data.Serialize() == bytes);
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
    const auto* list = value.GetIf<cw::EncodableList>();
    if (list && !list->empty() && fuzz::ReadsBack::Is(list->front())) CheckCarries(list->front());
  }
  FUZZ_CHECK(Message::FromBase64(std::move(text)).ToBase64() == message.ToBase64());
  FUZZ_CHECK(limits.WereKept());
  return 0;
}
