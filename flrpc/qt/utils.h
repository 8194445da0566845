// Conversion between values and Qt's JSON values, which the platform uses.
//
// clang-format off
//   value                   JSON                  value
//   null, bool, string   -> null, bool, string -> the same
//   int32, int64, double -> number             -> int32 if it fits, else int64, else double
//   bytes                -> string, Base64     -> string
//   typed list           -> array of numbers   -> the first of an int32, int64 or double list that
//                                                 holds every element
//   list                 -> array              -> list, unless all elements are numbers
//   map with string keys -> object             -> map
// clang-format on
//
// So 3.0 comes back as the int32 3, an int64 beyond 2^53 comes back rounded, a float list comes
// back as doubles or integers, and an empty typed list as an empty list. In a text that is no
// UTF-8, U+FFFD replaces the wrong bytes; half a surrogate pair becomes "?", and a byte order mark
// at the beginning is dropped. If keys become equal by that, the last one counts.
//
// Threads: any.
// Errors:  false (or a null text) and an error line for each function's own failure; `out` is
//          unspecified then. Lists and maps may be nested 1,024 deep, as Qt's own parser takes
//          them.
#pragma once

#include <QJsonObject>
#include <QJsonValue>
#include <QString>

#include "cw/encodable_value.h"

namespace flrpc::qt {

bool EncodableToJson(const cw::EncodableValue& value, QJsonValue& out);
bool EncodableMapToJsonObject(const cw::EncodableMap& map, QJsonObject& out);

// Compact JSON text; a null text on failure.
QString EncodableMapToJsonString(const cw::EncodableMap& map);

// A number beyond the range of int64 is a double, and an error line on the way.
bool JsonToEncodable(const QJsonValue& value, cw::EncodableValue& out);
bool JsonObjectToEncodableMap(const QJsonObject& object, cw::EncodableMap& out);

}  // namespace flrpc::qt
