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

}  // namespace desk
