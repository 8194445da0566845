// Reading and writing with calls that may be interrupted, move a part only, or find no memory.
//
// Async-signal-safe: used in forked processes, too.
#pragma once

#include <fcntl.h>
#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>

namespace desk {

// Returns whether a call that failed with this errno may succeed the next time.
inline bool IsTransient(int error) {
  return error == EINTR || error == EAGAIN || error == ENOBUFS || error == ENOMEM;
}

// Moves a new descriptor above the standard ones. A process that runs without a standard descriptor
// would otherwise write its output to the new one. The result is close-on-exec; -1, with errno, on
// failure.
inline int AboveStandard(int descriptor) {
  if (descriptor < 0 || descriptor > STDERR_FILENO) return descriptor;
  const int moved = fcntl(descriptor, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  const int error = errno;
  close(descriptor);
  errno = error;
  return moved;
}

// Calls `move(done, left)` until everything is moved or nothing more can be, and returns what was
// moved. Only for blocking descriptors: with others it would spin.
template <typename Move>
size_t MoveAll(size_t size, const Move& move) {
  size_t done = 0;
  while (done < size) {
    const ssize_t moved = move(done, size - done);
    if (moved == 0 || (moved < 0 && !IsTransient(errno))) break;
    if (moved > 0) done += static_cast<size_t>(moved);
  }
  return done;
}

}  // namespace desk
