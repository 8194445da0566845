#include "desk/common/quiet_write.h"

#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>
#include <initializer_list>

namespace desk {
namespace {

// Blocks both signals for this thread, so a write cannot end the process. They are raised for the
// thread that writes.
class SignalGuard {
 public:
  SignalGuard() {
    sigemptyset(&signals_);
    sigset_t pending;
    sigpending(&pending);
    for (const int number : {SIGPIPE, SIGXFSZ}) {  // A pending signal is the host's.
      if (!sigismember(&pending, number)) sigaddset(&signals_, number);
    }
    pthread_sigmask(SIG_BLOCK, &signals_, &before_);
  }
  ~SignalGuard() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
  SignalGuard(const SignalGuard&) = delete;
  SignalGuard& operator=(const SignalGuard&) = delete;

  // Consumes the signal of a write that has failed.
  void Swallow() const {
    const timespec now{};
    while (sigtimedwait(&signals_, nullptr, &now) < 0 && errno == EINTR) {
    }
  }

 private:
  sigset_t signals_{};
  sigset_t before_{};
};

bool HasRoom(int descriptor, int patience_ms) {
  pollfd poll_room{descriptor, POLLOUT, 0};
  int ready = 0;
  do {
    ready = poll(&poll_room, 1, patience_ms);
  } while (ready < 0 && errno == EINTR);
  return ready > 0;
}

}  // namespace

int WriteQuietly(int descriptor, const char* data, size_t size, int patience_ms, size_t* written) {
  const SignalGuard guard;
  *written = 0;
  while (*written < size) {
    const ssize_t moved = write(descriptor, data + *written, size - *written);
    const int fault = moved < 0 ? errno : EIO;
    if (moved > 0) {
      *written += static_cast<size_t>(moved);
    } else if (fault != EINTR && (fault != EAGAIN || !HasRoom(descriptor, patience_ms))) {
      if (fault == EPIPE || fault == EFBIG) guard.Swallow();
      return fault;
    }
  }
  return 0;
}

}  // namespace desk
