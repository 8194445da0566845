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

struct DeclareSweep {
  uint32_t timeout;  // The seconds after which `run` ends by itself, if the event loop goes on,
  int timed_out;     // with this exit code.
  int refused;       // The exit code for a plug-in that cannot be run, or refuses.
  // Called in the new process. Returns its exit code.
  std::function<int(const Declared& declared)> run;
};

// Prints a line for each size at which the plug-in crashes or hangs, and a summary. Returns the
// exit code of the program: 0; 1 after such a line; `refused` when the plug-in does not run with
// whole tables either. Throws std::runtime_error when there can be no process.
int RunDeclareSweep(const DeclareSweep& sweep, const std::string& program);

}  // namespace desk
