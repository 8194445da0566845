// Values as JSON and back, and JSON as text.
//
// Not everything comes back as it was: bytes and typed lists are arrays, keys that are no texts
// become the JSON text that they are, NaN, the infinities and custom values are null.
//
// Threads: any.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>

#include "cw/encodable_value.h"

namespace desk {

using Json = nlohmann::ordered_json;

constexpr int kDeepestJson = 1024;  // Lists and maps within each other.

// What lies deeper than kDeepestJson is null.
Json ToJson(const cw::EncodableValue& value);

// {"type": ..., "value": ...}: bytes are Base64, maps are arrays of [key, value], numbers that JSON
// has not are texts. For trees that were admitted: deeper than the stack is the caller's fault.
Json ToTypedJson(const cw::EncodableValue& value);

// Integers are int32 where they fit, else int64, else double. Throws std::runtime_error for JSON
// that is nested deeper than kDeepestJson.
cw::EncodableValue FromJson(const Json& json);

// One line; bytes that are no UTF-8 are replaced.
std::string ToText(const Json& json);
std::string ToText(const cw::EncodableValue& value);

}  // namespace desk
