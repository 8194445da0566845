// Reading and writing where calls are interrupted, move less than asked, or find no memory.
//
// Async-signal-safe: used in forked processes, too.
#pragma once

#include <sys/types.h>

#include <cerrno>
#include <cstddef>

namespace desk {

// What failed with that errno may succeed the next time.
inline bool IsTransient(int error) {
  return error == EINTR || error == EAGAIN || error == ENOBUFS || error == ENOMEM;
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
