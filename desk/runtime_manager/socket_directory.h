// Directories in which the processes of a user meet by sockets.
//
// Without Qt, and without C++'s library: the supervisor looks at them, too.
#pragma once

#include <ctime>

namespace desk {

// 0 when it is a directory of this user with mode 0700, EPERM when it is anything else, else the
// errno that tells why it cannot be looked at.
int CheckPrivateDirectory(const char* path);

using SocketVisitor = void (*)(void* context, const char* path, const timespec& modified);

// Visits the sockets of the directory that a process has bound, and removes the others: their
// processes are dead. Returns 0, or the errno of what failed.
int SweepSockets(const char* directory, SocketVisitor visit, void* context);

// Removes the intents of dead processes below the shared directory (socket_files.h).
void RemoveDeadIntents(const char* shared_directory);

}  // namespace desk
