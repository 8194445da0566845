// Where the desk's sockets lie: in directories that no other user can reach.
//
// Errors: the cause in `error`.
#pragma once

#include <QByteArray>
#include <QString>

namespace desk {

// The text of errno.
QString ErrnoText();

// $XDG_RUNTIME_DIR; empty when there is no such directory of this user: another could exchange what
// lies in it.
QByteArray GetRuntimeDirectory();

// Is it this user's directory, with mode 0700?
bool IsPrivateDirectory(const QByteArray& path);

// Makes the directory so, or finds it so.
bool MakePrivateDirectory(const QByteArray& path, QString* error);

// Where all processes of this user meet: tavo/ in the runtime directory or, without one, a
// directory of the user's among the temporary files. It need not exist.
QByteArray GetSharedDirectory();

// A listening socket, neither blocking nor inherited; -1 on failure, and no file then.
int ListenAt(const QByteArray& path, QString* error);

}  // namespace desk
