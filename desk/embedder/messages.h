// Messages of the standard codecs: what they are, for people and for comparisons.
//
// Threads: any.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "cw/encodable_value.h"

namespace desk {

// What the bytes are, in the first form that takes all of them:
//
//   no bytes                   {"message": null}
//   a value                    {"message": any}
//   a method call              {"method": text, "arguments": any}
//   a result envelope          {"success": any}, or {"error": {"code", "message", "details"}}
//   anything else              {"bytes": Base64}
cw::EncodableMap DescribeMessage(const uint8_t* data, size_t size);

std::string ToBase64(const uint8_t* data, size_t size);

// The bytes of a Base64 text. Throws std::runtime_error for any other text.
std::vector<uint8_t> FromBase64(const std::string& text);

}  // namespace desk
