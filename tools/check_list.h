// The checks of `tavo check`. docs/protocol.md and docs/desk.md have what they check.
//
// Threads: the main thread alone.
// Errors:  Finding.
#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "tools/check_wire.h"

namespace tools {

// The task does not answer the handshake, so that nothing else can be checked.
class NoHandshake : public Finding {
 public:
  using Finding::Finding;
};

struct Check {
  const char* name;
  // Gets a task that was started for it, and returns what was seen.
  std::function<std::string(Wire& wire)> run;
};

// In the order in which they run. The first is the handshake, which may take so long.
std::vector<Check> MakeChecks(std::chrono::microseconds handshake_limit);

}  // namespace tools
