// Conversion between values and Qt's JSON values, for those who speak JSON to the platform.
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
// So 3.0 comes back as the int32 3, an int64 beyond 2^53 rounded, a float list as doubles or
// integers, an empty typed list as an empty list. Text that is no UTF-8 has U+FFFD in the wrong
// places, half a surrogate pair is "?", a byte order mark in front is gone; of keys that become
// equal by that the last one counts.
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
