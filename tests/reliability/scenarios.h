// What the system can be asked to do. The tests of failing allocations run each of these with
// memory that ends; those of re-entrancy run each of them in each of the callbacks.
#pragma once

#include <ostream>

#include "tests/reliability/world.h"

namespace test {

enum Trait : unsigned {
  kPlain = 0,
  kIsSure = 1,     // It is done whatever fails,
  kIsTold = 2,     // and so are the callbacks.
  kIsFinal = 4,    // What failed cannot be done again.
  kMayThrow = 8,   // To its C++ caller.
  kConnects = 16,  // A signal, where Qt leaks when its own allocation fails.
};

struct Scenario {
  const char* name;
  unsigned traits;
  unsigned callbacks;  // Each is called if the scenario succeeds.
  void (*prepare)(World& world);
  void (*act)(World& world);  // Sets is_done. In a callback it may find the world in any state.
};

inline void PrintTo(const Scenario& scenario, std::ostream* out) { *out << scenario.name; }

extern const Scenario kScenarios[30];

}  // namespace test
