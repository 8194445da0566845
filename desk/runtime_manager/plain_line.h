// Plain lines: an object whose one member is a text of printable ASCII without escapes, which is
// what the messages of libtavo.so are. They are read and written without Qt's parser and writer,
// which convert long texts several times.
//
// The results are those of Qt's parser and writer.
#pragma once

#include <optional>

#include <QByteArray>
#include <QJsonObject>

namespace desk {

// Returns the object on the line, or nothing when the line is not plain.
std::optional<QJsonObject> ParsePlainLine(const QByteArray& line);

// Returns the object in its compact form, with a newline at the end, or the empty text when the
// object does not make a plain line.
QByteArray MakePlainLine(const QJsonObject& object);

}  // namespace desk
