// The process that stands between a starter and its task: the program tavo-supervisor.
//
// It starts the task in a process group of its own, tells the starter how that went, and stays
// until the task has ended: because the task ended by itself, because the starter said so, or
// because the starter is gone. The link, a socket pair, is the life-line both ways: whichever
// process dies, the other sees the end of the stream. A thread of the starter may end meanwhile.
//
// The supervisor is a program of its own, so that it holds nothing of its starter's memory and does
// not bear the starter's name. It gets the descriptors and texts below, the task's environment, and
// every signal blocked.
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

// The program's arguments; an empty text is none. The first process that gets them forks the
// supervisor and ends with 0, or with the errno of the fork.
enum SupervisorArgument {
  kProgram,
  kLink,              // A descriptor.
  kSocket,            // A descriptor, which becomes the task's descriptor 3.
  kSocketPath,        // Removed in the end.
  kPrivateDirectory,  // Removed in the end.
  kSharedDirectory,   // In the end what dead processes left there is removed: socket_directory.h.
  kDirectory,         // Where the task starts.
  kSparesLeftovers,   // Not empty: what the task leaves behind in its group may stay.
  kTaskCommand        // The path of the task's program; its arguments follow.
};

constexpr int kTermGraceSeconds = 5;  // Between asking the process group to end and killing it.

}  // namespace desk
