// Reading and writing where calls are interrupted, move less than asked, or find no memory.
//
// Async-signal-safe: used in forked processes, too.
#pragma once

#include <fcntl.h>
#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>

namespace desk {

// What failed with that errno may succeed the next time.
inline bool IsTransient(int error) {
  return error == EINTR || error == EAGAIN || error == ENOBUFS || error == ENOMEM;
}

// A new descriptor where standard output and the others belong, if the process runs without them,
// would be written to by whoever prints. It is moved up, close-on-exec; -1, with errno, when that
// fails.
inline int AboveStandard(int descriptor) {
  if (descriptor < 0 || descriptor > STDERR_FILENO) return descriptor;
  const int moved = fcntl(descriptor, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  const int error = errno;
  close(descriptor);
  errno = error;
  return moved;
}

// Calls `move(done, left)` until all is moved, or nothing more can be. For blocking descriptors:
// elsewhere it would spin. Returns what was moved.
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
