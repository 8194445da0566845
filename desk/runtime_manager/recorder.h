// The file that TAVO_DESK_RECORD names: what happened on the desk, one JSON object a line.
//
// Threads: any, and any number of processes.
#pragma once

#include <QJsonObject>
#include <QString>

namespace desk {

// Appends the entry, with its time, to the file; a line on standard error when none is named.
// False, with the cause in `error`, when the file cannot be written.
bool Record(QJsonObject entry, QString* error);

}  // namespace desk
