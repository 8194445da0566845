// A plug-in at embedders of every age: it runs with each declared size of the context and of each
// table, in a process of its own each time.
//
// Threads: the main thread; no other one may run yet, because the process forks.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <utility>

namespace desk {

// The structure and the bytes that are declared of it. An empty name: all structures are whole.
using Declared = std::pair<std::string, uint32_t>;

// How a run has ended. The exit code does not tell: the plug-in may choose any.
enum class Outcome : char {
  kExited,   // The plug-in has exited.
  kRanOn,    // The event loop still ran at the end of the time limit.
  kRefused,  // The plug-in has refused its registration.
  kNotRun,   // The program itself has failed, or the plug-in could not be loaded.
};

struct DeclareSweep {
  uint32_t timeout;  // The seconds after which `run` ends by itself, if the event loop goes on.
  // Called in the new process. Returns its exit code. A process that ends without the return has
  // exited.
  std::function<int(const Declared& declared, Outcome* outcome)> run;
};

// Prints a line for each size at which the plug-in crashes or hangs, and a summary. Returns the
// exit code of the program: 0; 1 after such a line. When the plug-in does not run with whole tables
// either, it prints nothing but a line on standard error, and returns 1 after a crash or a hang,
// otherwise the exit code of that run. Throws std::runtime_error when there can be no process, when
// a run ends with kNotRun, and when standard output cannot be written.
int RunDeclareSweep(const DeclareSweep& sweep, const std::string& program);

}  // namespace desk
