// Messages, from Base64 text and from values. The first byte chooses: the rest is the text, or the
// bytes that it encodes.
#include "flrpc/message.h"
#include "flrpc/sendable.h"
#include "fuzz/input.h"

using flrpc::Message;
using forge::Buffer;

// An accepted message survives, and its two ways to be encoded agree. The sender's check says of it
// what the receiver's does.
static void CheckSurvives(const Message& message) {
  const auto value = message.ToEncodable();
  const std::string text = message.ToBase64();
  const Buffer bytes = value.Serialize();
  assert(bytes.ToBase64() == text);
  const bool is_sent = !flrpc::details::FindUnsendable(message);
  assert(is_sent == fuzz::IsAdmissible(bytes));
  if (!is_sent || !fuzz::ReadsBack(value)) return;
  assert(Message::FromBase64(text).ToBase64() == text);
  if (message.IsEmpty()) return;  // Null in the encoding alone.
  assert(Message::FromEncodable(value).ToBase64() == text);
}

void fuzz::Run(const Buffer& input) {
  if (input.GetSize() == 0) return;
  const uint8_t* data = input.GetData();
  std::string text(data + 1, data + input.GetSize());
  if (*data % 2 == 0) text = Buffer(data + 1, text.size()).ToBase64();
  const Buffer bytes = Buffer::FromBase64(text);
  if (!IsLight(bytes)) return;
  const Message message = Message::FromBase64(text);
  CheckSurvives(message);
  text = Message::FromBase64(std::move(text)).ToBase64();
  assert(message.ToBase64() == text);
  if (!IsAdmissible(bytes)) return;
  auto value = cw::EncodableValue::Deserialize(bytes);
  const std::string made = Message::FromEncodable(value).ToBase64();
  assert(made == text || value.IsNull());
  if (ReadsBack(value)) {  // What is put into a message survives in it.
    const Message::ID id("id");
    CheckSurvives(Message::CreateRequest(id, "call", value));
    CheckSurvives(Message::CreateResponse(id, value));
    CheckSurvives(Message::CreateError(id, 7, "why", value));
    CheckSurvives(Message::CreateNotification("news", value));
  }
  assert(Message::FromEncodable(std::move(value)).ToBase64() == made);
}
