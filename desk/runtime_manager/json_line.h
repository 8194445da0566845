// JSON objects on lines, as they go over the desk's sockets.
//
// Errors: an empty optional, with the cause in `fault`. A line of more than kMaxLineValues values
// is refused, because the object takes many times the line's memory. So is a JSON object with a
// duplicate key, because Qt's parser leaks the first value.
#pragma once

#include <optional>

#include <QByteArray>
#include <QJsonObject>
#include <QString>

namespace desk {

constexpr int kMaxLineValues = 1 << 17;

// Returns the object on a line that a peer has sent.
std::optional<QJsonObject> ParseLine(const QByteArray& line, QString* fault);

// Returns the object in its compact form, with a newline at the end.
QByteArray MakeLine(const QJsonObject& object);

}  // namespace desk
