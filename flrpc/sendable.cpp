#include "flrpc/sendable.h"

#include <string>

#include "cw/admission.h"

namespace flrpc::details {
namespace {

// What lies around the value that the caller gives. The message is a map; each of its members, and
// of an error's, is a key and a value.
constexpr cw::Surroundings kRequest{1, 1 + 3 * 2 + 1};       // Beside "id", "jsonrpc", "method".
constexpr cw::Surroundings kNotification{1, 1 + 2 * 2 + 1};  // Beside "jsonrpc", "method".
constexpr cw::Surroundings kResult{1, 1 + 2 * 2 + 1};        // Beside "id", "jsonrpc".
constexpr cw::Surroundings kError{2, 1 + 2 * 2 + 1 + 1 + 2 * 2 + 1};  // And "code", "message".

}  // namespace

const char* FindUnsendable(const Message& message) {
  if (const auto* request = message.GetRequest()) {
    return cw::FindInadmissible(request->params, kRequest);
  }
  if (const auto* notification = message.GetNotification()) {
    return cw::FindInadmissible(notification->params, kNotification);
  }
  const auto* response = message.GetResponse();
  if (const auto* result = response ? response->GetResult() : nullptr) {
    return cw::FindInadmissible(*result, kResult);
  }
  const auto* error = response ? response->GetError() : message.GetError();
  return error ? cw::FindInadmissible(error->data, kError) : nullptr;
}

Message::Error MakeUnsendableError(const char* fault) {
  return Message::Error(kInternalError, "The message cannot be sent: " + std::string(fault));
}

}  // namespace flrpc::details
