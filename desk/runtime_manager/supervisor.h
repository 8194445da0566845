// The process that stands between a starter and its task.
//
// It starts the task in a process group of its own, tells the starter how that went, and stays
// until the task has ended: because the task ended by itself, because the starter said so, or
// because the starter is gone. The link, a socket pair, is the life-line both ways: whichever
// process dies, the other sees the end of the stream. A thread of the starter may end meanwhile.
//
// The supervisor is forked, not executed, from a process that may have many threads: everything
// in here is async-signal-safe and allocates nothing.
#pragma once

#include <cstdint>

namespace desk {

// What the starter may say over the link; its end means kTerminate.
enum class Command : char { kTerminate = 'T', kKill = 'K' };

// What the supervisor says: how starting went, then, as the last thing, that nothing is left.
struct SupervisorReport {
  enum Kind : int32_t { kRunning, kForkFailed, kDirectoryFailed, kExecFailed, kDone };
  int32_t kind;
  int32_t error;       // The errno of what failed.
  int32_t task;        // The process id of the task, which is its group's, too.
  int32_t supervisor;  // The supervisor's own process id.
  int32_t status;      // With kDone: how the task ended, as waitpid tells it.
};

// All that is needed after the fork, prepared before it.
struct Launch {
  char* const* command;           // Ends with a null pointer; the program is a path.
  char* const* environment;       // Likewise.
  char* listen_pid;               // Room in the environment for the digits of a process id.
  const char* directory;          // Null: stay.
  int socket;                     // Becomes descriptor 3; -1: none.
  const char* socket_path;        // Removed in the end; null: none.
  const char* private_directory;  // Removed in the end; null: none.
  bool spares_leftovers;          // What the task leaves behind in its group may stay.
};

constexpr int kTermGraceSeconds = 5;  // Between asking the process group to end and killing it.
constexpr int kListenPidDigits = 11;  // With the terminating zero.

// Runs in the forked process and ends it. All signals are blocked on entry.
[[noreturn]] void RunSupervisor(const Launch& launch, int link);

}  // namespace desk
