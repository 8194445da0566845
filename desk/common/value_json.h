// Values as JSON and back, without loss; and JSON as text. docs/tavo.md shows the forms.
//
//   {"path": "/etc/hostname", "size": 9, "ratio": 1.0, "key": {"$bytes": "AQI="}}
//
// A value whose type JSON would lose is a marked form: an object of one member, whose key is the
// mark. FromJson(ToJson(value)) is the same value, bit by bit, for each value but a custom one.
//
// Threads: any.
// Errors:  std::runtime_error with the place of what is wrong, such as "$.items[3]: ...".
#pragma once

#include <cstddef>
#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "cw/admission.h"
#include "cw/encodable_value.h"

namespace desk {

using Json = nlohmann::ordered_json;

constexpr size_t kDeepestValue = cw::kDeepestNesting;  // Lists and maps that lie in each other.

// How an int64 is written that is in the range of int32. Plain ones are for people and scripts:
// such a number comes back as int32.
enum class SmallInt64 { kMarked, kPlain };

// Throws for a custom value. A value may be a little deeper than kDeepestValue, so that a program
// may put values of that depth into a list or a map.
Json ToJson(const cw::EncodableValue& value, SmallInt64 small_int64 = SmallInt64::kMarked);

// A number without a point or an exponent is int32 where it fits, else int64, else double. Throws
// for a mark with the wrong content, and for values that are deeper than kDeepestValue. An object
// with a key that looks like a mark but is none is a map.
cw::EncodableValue FromJson(const Json& json);

// The text is one line without control characters; bytes that are no UTF-8 are replaced.
std::string ToText(const Json& json);
std::string ToText(const cw::EncodableValue& value, SmallInt64 small_int64 = SmallInt64::kMarked);

// Bytes as a Base64 text, and back. FromBase64 throws for any other text, without a place.
std::string ToBase64(const uint8_t* data, size_t size);
std::vector<uint8_t> FromBase64(const std::string& text);

}  // namespace desk
