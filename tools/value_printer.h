// Values and messages as text for people: one line a value, with its type, nested ones indented.
//
//   request "id537_1" "camera.open"
//     params: map (2)
//       "device": int32 1
//       "name": text "back"
//
// Threads: any.
#pragma once

#include <string>

#include "cw/encodable_value.h"
#include "flrpc/message.h"

namespace tools {

// Lines without a newline at the end. Long typed lists are cut, and say so.
std::string Describe(const cw::EncodableValue& value);
std::string Describe(const flrpc::Message& message);

// In quotes, control characters and bytes that are no UTF-8 escaped.
std::string Quote(const std::string& text);

}  // namespace tools
