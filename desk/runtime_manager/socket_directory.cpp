#include "desk/runtime_manager/socket_directory.h"

#include <dirent.h>
#include <limits.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

namespace desk {
namespace {

// Returns whether the path fits.
template <size_t kSize>
bool Join(char (&path)[kSize], const char* directory, const char* name) {
  const int length = std::snprintf(path, kSize, "%s/%s", directory, name);
  return length >= 0 && static_cast<size_t>(length) < kSize;
}

// Returns the errno with which a datagram socket is refused: ECONNREFUSED when no process has bound
// the socket, EPROTOTYPE when a process has. A listener for streams does not notice the attempt.
int Probe(const sockaddr_un& address, int* refusal) {
  const int descriptor = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (descriptor < 0) return errno;
  const bool connected =
      connect(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
  *refusal = connected ? 0 : errno;
  close(descriptor);
  return 0;
}

int SweepSocket(const sockaddr_un& address, SocketVisitor visit, void* context) {
  struct stat status {};
  if (lstat(address.sun_path, &status) != 0 || !S_ISSOCK(status.st_mode)) return 0;
  int refusal = 0;
  const int fault = Probe(address, &refusal);
  if (fault != 0) return fault;
  if (refusal == ECONNREFUSED) {
    unlink(address.sun_path);
  } else if (visit) {
    visit(context, address.sun_path, status.st_mtim);
  }
  return 0;
}

}  // namespace

int CheckPrivateDirectory(const char* path) {
  struct stat status {};
  if (lstat(path, &status) != 0) return errno;
  const bool is_private =
      S_ISDIR(status.st_mode) && status.st_uid == geteuid() && (status.st_mode & 0777) == 0700;
  return is_private ? 0 : EPERM;
}

int SweepSockets(const char* directory, SocketVisitor visit, void* context) {
  DIR* stream = opendir(directory);
  if (!stream) return errno;
  int fault = 0;
  const dirent* entry = nullptr;
  while (errno = 0, fault == 0 && (entry = readdir(stream))) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (Join(address.sun_path, directory, entry->d_name)) {
      fault = SweepSocket(address, visit, context);
    }
  }
  if (fault == 0) fault = errno;
  closedir(stream);
  return fault;
}

void RemoveDeadIntents(const char* shared_directory) {
  char intents[PATH_MAX];
  if (!Join(intents, shared_directory, "intents")) return;
  if (CheckPrivateDirectory(shared_directory) != 0 || CheckPrivateDirectory(intents) != 0) return;
  SweepSockets(intents, nullptr, nullptr);
}

}  // namespace desk
