// Directories with the sockets by which the processes of a user connect.
//
// Uses neither Qt nor the C++ library, because the supervisor uses it, too.
#pragma once

#include <ctime>

namespace desk {

// Returns 0 for a directory of this user with mode 0700, EPERM for anything else, and otherwise the
// errno of the failed look-up.
int CheckPrivateDirectory(const char* path);

using SocketVisitor = void (*)(void* context, const char* path, const timespec& modified);

// Visits the sockets of the directory that a process has bound, and removes those of dead
// processes. Returns 0, or the errno of the failure.
int SweepSockets(const char* directory, SocketVisitor visit, void* context);

// Removes the intents of dead processes below the shared directory (socket_files.h).
void RemoveDeadIntents(const char* shared_directory);

}  // namespace desk
