// Stream sockets with a path.
//
// Threads: any. Errors: false, with errno; ENAMETOOLONG when the path does not fit.
#pragma once

#include <sys/un.h>

#include <QByteArray>

namespace desk {

constexpr int kMaxSocketPath = sizeof(sockaddr_un::sun_path) - 1;  // In bytes.

bool ConnectTo(int descriptor, const QByteArray& path);
bool BindTo(int descriptor, const QByteArray& path);

// Returns whether the other end of a connected socket is a process of this user. If the other end
// listened, the process that did so counts.
bool IsOwnUser(int descriptor);

}  // namespace desk
