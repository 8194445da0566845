#include "desk/common/unix_socket.h"

#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace desk {
namespace {

template <typename Call>
bool CallWithAddress(Call call, int descriptor, const QByteArray& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() > kMaxSocketPath) {
    errno = ENAMETOOLONG;
    return false;
  }
  std::memcpy(address.sun_path, path.constData(), static_cast<size_t>(path.size()));
  return call(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

}  // namespace

bool ConnectTo(int descriptor, const QByteArray& path) {
  return CallWithAddress(connect, descriptor, path);
}

bool BindTo(int descriptor, const QByteArray& path) {
  return CallWithAddress(bind, descriptor, path);
}

bool IsOwnUser(int descriptor) {
  ucred peer{};
  socklen_t size = sizeof peer;
  return getsockopt(descriptor, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 &&
         peer.uid == geteuid();
}

}  // namespace desk
