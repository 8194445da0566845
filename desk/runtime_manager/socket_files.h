// The places of the desk's sockets: directories that no other user can reach.
//
// Errors: the cause in `error`.
#pragma once

#include <QByteArray>
#include <QString>

namespace desk {

// Returns $XDG_RUNTIME_DIR. Empty when it is no directory of this user, and when other users may
// write in it (reported once on standard error), because they could replace its files.
QByteArray GetRuntimeDirectory();

// Describes a failure of CheckPrivateDirectory (socket_directory.h).
QString PrivateDirectoryFault(const QByteArray& path, int fault);

// Makes a directory of this user with mode 0700, or accepts an existing one.
bool MakePrivateDirectory(const QByteArray& path, QString* error);

// Returns the directory that all processes of this user share: tavo/ in the runtime directory or,
// without one, a directory of the user among the temporary files. It need not exist.
QByteArray GetSharedDirectory();

// Returns a listening socket that blocks and is not inherited. -1, without a file, on failure.
int ListenAt(const QByteArray& path, QString* error);

}  // namespace desk
