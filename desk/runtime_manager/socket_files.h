// Where the desk's sockets lie: in directories that no other user can reach.
//
// Errors: the cause in `error`.
#pragma once

#include <QByteArray>
#include <QString>

namespace desk {

// $XDG_RUNTIME_DIR; empty when there is no such directory of this user, or when others may write in
// it (told once on standard error): another user could exchange what lies there.
QByteArray GetRuntimeDirectory();

// What CheckPrivateDirectory (socket_directory.h) found wrong with it.
QString PrivateDirectoryFault(const QByteArray& path, int fault);

// Makes it a directory of this user with mode 0700, or finds it so.
bool MakePrivateDirectory(const QByteArray& path, QString* error);

// Where all processes of this user meet: tavo/ in the runtime directory or, without one, a
// directory of the user's among the temporary files. It need not exist.
QByteArray GetSharedDirectory();

// A listening socket that blocks and is not inherited; -1 on failure, and no file then.
int ListenAt(const QByteArray& path, QString* error);

}  // namespace desk
