// Descriptions of messages of the standard codecs, for people and for comparisons.
//
// Threads: any.
#pragma once

#include <cstddef>
#include <cstdint>

#include "cw/encodable_value.h"

namespace desk {

// Describes the bytes in the first of these forms that covers all of them:
//
//   no bytes                   {"message": null}
//   a value                    {"message": any}
//   a method call              {"method": text, "arguments": any}
//   a result envelope          {"success": any}, or {"error": {"code", "message", "details"}}
//   anything else              {"bytes": Base64}
cw::EncodableMap DescribeMessage(const uint8_t* data, size_t size);

}  // namespace desk
