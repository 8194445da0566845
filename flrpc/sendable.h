// The check whether the peer would accept a message.
//
// Threads: any.
#pragma once

#include "cw/admission.h"
#include "flrpc/message.h"

namespace flrpc::details {

// The sender's own value in a message (null: there is none) and the surroundings of that value.
struct Payload {
  const cw::EncodableValue* value;
  cw::Surroundings around;
};

Payload GetPayload(const Message& message);

// Returns the limit that the message exceeds, as a text; null when the peer would accept it.
const char* FindUnsendable(const Message& message);

// Makes the error that replaces a message that cannot be sent.
Message::Error MakeUnsendableError(const char* fault);

}  // namespace flrpc::details
