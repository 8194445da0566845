// JSON objects on lines, as they go over the desk's sockets.
//
// Errors: an empty optional, with the cause in `fault`. A line of more than kMostValues values is
// refused, since as an object each takes many times its bytes. So is one with an object where a key
// comes again: Qt's parser loses the memory of the first value.
#pragma once

#include <optional>

#include <QByteArray>
#include <QJsonObject>
#include <QString>

namespace desk {

constexpr int kMostValues = 1 << 17;

// What stands on a line that a peer sent.
std::optional<QJsonObject> ParseLine(const QByteArray& line, QString* fault);

// The object in its compact form, with a newline at the end.
QByteArray MakeLine(const QJsonObject& object);

}  // namespace desk
