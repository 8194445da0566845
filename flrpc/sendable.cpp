#include "flrpc/sendable.h"

#include <string>

#include "forge/buffer.h"

namespace flrpc::details {
namespace {

// A message is a map, and an error in it is a map, too. Each member is a key and a value. The
// sender's own value is counted separately.
constexpr uint64_t CountAround(uint64_t maps, uint64_t other_members) {
  return maps + 2 * other_members + 1;
}
constexpr cw::Surroundings kInRequest{1, CountAround(1, 3)};       // "id", "jsonrpc", "method".
constexpr cw::Surroundings kInNotification{1, CountAround(1, 2)};  // "jsonrpc", "method".
constexpr cw::Surroundings kInResult{1, CountAround(1, 2)};        // "id", "jsonrpc".
// "id" unless it stands alone, "jsonrpc", "code", "message", and the key "error".
constexpr cw::Surroundings kInError{2, CountAround(2, 4) + 1};
constexpr cw::Surroundings kInErrorAlone{2, CountAround(2, 3) + 1};

}  // namespace

Payload GetPayload(const Message& message) {
  if (const auto* request = message.GetRequest()) return {&request->params, kInRequest};
  if (const auto* notification = message.GetNotification()) {
    return {&notification->params, kInNotification};
  }
  if (const auto* error = message.GetError()) return {&error->data, kInErrorAlone};
  const auto* response = message.GetResponse();
  if (!response) return {nullptr, {}};
  if (const auto* error = response->GetError()) return {&error->data, kInError};
  return {response->GetResult(), kInResult};
}

const char* FindUnsendable(const Message& message) {
  const Payload payload = GetPayload(message);
  if (!payload.value) return nullptr;
  bool needs_bytes = false;
  const char* fault = cw::FindInadmissible(*payload.value, payload.around, &needs_bytes);
  if (fault || !needs_bytes) return fault;
  const forge::Buffer bytes = message.ToEncodable().Serialize();
  return cw::FindInadmissible(bytes.GetData(), bytes.GetSize());
}

Message::Error MakeUnsendableError(const char* fault) {
  return Message::Error(kInternalError, "The message cannot be sent: " + std::string(fault));
}

}  // namespace flrpc::details
