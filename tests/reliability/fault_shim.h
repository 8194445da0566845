// Makes system calls fail by a seeded schedule: linked by a test for its own process, preloaded
// (LD_PRELOAD) into those that it starts, which inherit the plan in TAVO_FAULT. A forked process
// goes on with its parent's.
//
// It stands in front of the C library's functions. Those on sockets are called by the desk alone;
// read and write fail on pipes alone, so that the event loop's own descriptors stay whole.
#pragma once

#include <string>

namespace test {

struct Fault {
  static constexpr int kShort = 0;  // Not a failure: one byte is read or written.
  static constexpr int kKill = -1;  // The process is killed when it has sent `after` bytes.

  int error;          // An errno, or one of the above.
  std::string calls;  // Their names, with blanks between.
  unsigned one_in;    // Of how many calls one fails.
  unsigned seed;
  long after = 0;

  std::string GetPlan() const {
    return std::to_string(error) + ' ' + std::to_string(one_in) + ' ' + std::to_string(seed) + ' ' +
           std::to_string(after) + ' ' + calls;
  }
};

}  // namespace test

extern "C" void TAVOFaultSetPlan(const char* plan);  // Null: nothing fails any more.
extern "C" long TAVOFaultCount();                    // What failed in this process since then.
