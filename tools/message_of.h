// Values that are messages of the protocol.
//
// Threads: any.
#pragma once

#include <optional>

#include "cw/encodable_value.h"
#include "flrpc/message.h"

namespace tools {

// Returns the value as a message if it is one, and writes no log line if it is none.
std::optional<flrpc::Message> MessageOf(const cw::EncodableValue& value);

}  // namespace tools
