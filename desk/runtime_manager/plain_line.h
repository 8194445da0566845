// Plain lines: an object whose one member is a text of printable ASCII without escapes, which is
// what the messages of libtavo.so are. They need no search for what the parser must not get. Long
// ones do without Qt's parser and writer, which go through a text character by character.
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
