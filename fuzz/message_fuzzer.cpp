// Messages, from Base64 text and from values. The first byte chooses: the rest is the text, or the
// bytes that it encodes.
#include "flrpc/message_text.h"
#include "flrpc/sendable.h"
#include "fuzz/input.h"

using flrpc::Message;
using forge::Buffer;

// An accepted message survives, and its two ways to be encoded agree. The sender's check says of it
// what the receiver's does.
static void Check(const Message& message) {
  const auto value = message.ToEncodable();
  const std::string text = message.ToBase64();
  const Buffer bytes = value.Serialize();
  assert(bytes.ToBase64() == text);
  assert(flrpc::details::MessageText(Message(message)).Get() == text);
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
  Check(Message::FromBase64(text));
  if (!IsAdmissible(bytes)) return;
  const auto value = cw::EncodableValue::Deserialize(bytes);
  const Message message = value.IsNull() ? Message() : Message::FromEncodable(value);
  assert(Message::FromBase64(text).ToBase64() == message.ToBase64());
  if (!ReadsBack(value)) return;
  // What is put into a message survives in it.
  const Message::ID id("id");
  Check(Message::CreateRequest(id, "call", value));
  Check(Message::CreateResponse(id, value));
  Check(Message::CreateError(id, 7, "why", value));
  Check(Message::CreateNotification("news", value));
}
