// Values and messages as text for people: one line for each value, with its type and indentation.
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

// Lines without a newline at the end. Long typed lists are cut, which the text shows.
std::string Describe(const cw::EncodableValue& value);
std::string Describe(const flrpc::Message& message);

// The text in quotes; quotes, backslashes and what is not printable (tools/printable.h) are
// escaped.
std::string Quote(const std::string& text);

}  // namespace tools
