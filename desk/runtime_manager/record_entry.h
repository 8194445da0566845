// One entry of the desk's record: a JSON object on one line, with the time at which it was made.
//
// Threads: any.
#pragma once

#include <QByteArray>
#include <QJsonObject>

namespace desk {

// Returns the members that tell the time, without braces: "monotonic", microseconds of
// CLOCK_MONOTONIC, by which entries of different processes compare, and "time", the UTC time.
QByteArray MakeTimeMembers();

// Returns the object with the members that tell the time, without a newline.
QByteArray MakeEntry(const QJsonObject& members);

}  // namespace desk
