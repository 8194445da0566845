// Values as JSON and back, and JSON as text.
//
// Some values come back changed: bytes and typed lists become arrays, keys that are no texts become
// their JSON text, and NaN, the infinities and custom values become null.
//
// Threads: any.
#pragma once

#include <cstddef>
#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "cw/encodable_value.h"

namespace desk {

using Json = nlohmann::ordered_json;

constexpr int kDeepestJson = 1024;  // The number of lists and maps within each other.

// Values deeper than kDeepestJson become null.
Json ToJson(const cw::EncodableValue& value);

// Converts to {"type": ..., "value": ...}: bytes are Base64, maps are arrays of [key, value], and
// numbers that JSON does not have are texts. Only for trees that were admitted (cw/admission.h),
// because it recurses.
Json ToTypedJson(const cw::EncodableValue& value);

// Integers are int32 where they fit, else int64, else double. Throws std::runtime_error for JSON
// that is nested deeper than kDeepestJson.
cw::EncodableValue FromJson(const Json& json);

// The text is one line; bytes that are no UTF-8 are replaced.
std::string ToText(const Json& json);
std::string ToText(const cw::EncodableValue& value);

// Bytes as a Base64 text, and back. FromBase64 throws std::runtime_error for any other text.
std::string ToBase64(const uint8_t* data, size_t size);
std::vector<uint8_t> FromBase64(const std::string& text);

}  // namespace desk
