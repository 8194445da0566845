// Whether the peer would take a message.
//
// Threads: any.
#pragma once

#include "cw/admission.h"
#include "flrpc/message.h"

namespace flrpc::details {

// The value in a message that its sender gives, null if there is none, and what lies around it.
struct Payload {
  const cw::EncodableValue* value;
  cw::Surroundings around;
};

Payload GetPayload(const Message& message);

// The limit that the message exceeds, as a text; null when the peer would take it.
const char* FindUnsendable(const Message& message);

// The error that takes the place of what cannot be sent.
Message::Error MakeUnsendableError(const char* fault);

}  // namespace flrpc::details
