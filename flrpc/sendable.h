// Whether the peer would take a message.
//
// Threads: any.
#pragma once

#include "flrpc/message.h"

namespace flrpc::details {

// The limit that the message exceeds, as a text; null when the peer would take it.
const char* FindUnsendable(const Message& message);

// The error that takes the place of what cannot be sent.
Message::Error MakeUnsendableError(const char* fault);

}  // namespace flrpc::details
