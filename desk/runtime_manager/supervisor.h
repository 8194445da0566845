// The process between a starter and its task: the program tavo-supervisor.
//
// It starts the task in a process group of its own, reports the outcome to the starter, and stays
// until the task has ended: because the task ended by itself, because the starter asked for it, or
// because the starter has ended. The link is a socket pair: if one process dies, the other sees the
// end of the stream. The thread that has started the task may end earlier.
//
// The supervisor is a separate program, so that it keeps none of its starter's memory and has a
// name of its own. It gets the task's standard descriptors, the descriptors and texts below, the
// task's environment, and every signal blocked.
#pragma once

#include <cstdint>

namespace desk {

// The orders of the starter over the link; the end of the stream means kTerminate.
enum class Order : char { kTerminate = 'T', kKill = 'K' };

// The supervisor's reports: first the outcome of the start, at the end that nothing is left.
struct SupervisorReport {
  enum Kind : int32_t { kRunning, kForkFailed, kDirectoryFailed, kExecFailed, kDone };
  int32_t kind;
  int32_t error;       // The errno of the failure.
  int32_t task;        // The process id of the task, which is its group's, too.
  int32_t supervisor;  // The supervisor's own process id.
  int32_t status;      // With kDone: the task's status, as of waitpid.
};

// The program's arguments; an empty text means none. The first process that gets them forks the
// supervisor and ends with 0, or with the errno of the fork.
enum SupervisorArgument {
  kProgram,
  kLink,              // A descriptor.
  kSocket,            // A descriptor, which becomes the task's descriptor 3.
  kSocketPath,        // Removed in the end.
  kPrivateDirectory,  // Removed in the end.
  kSharedDirectory,   // Files of dead processes there are removed.
  kDirectory,         // The task's working directory.
  kSparesLeftovers,   // Not empty: the rest of the task's group may go on.
  kTaskCommand        // The path of the task's program; its arguments follow.
};

constexpr int kTermGraceSeconds = 5;  // Between asking the process group to end and killing it.

}  // namespace desk
