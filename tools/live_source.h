// The record of every conversation in the session, live: a watcher (desk/runtime_manager).
#pragma once

#include <memory>

#include "tools/line_source.h"

namespace tools {

// Watches until the source is destroyed, which removes its socket. A process that has conversations
// already is heard from now on. Entries that the caller reads too late are dropped by the process
// that sends them, which tells their number in an entry {"event":"dropped"}.
//
// Errors: std::runtime_error when the socket cannot be made.
std::unique_ptr<ILineSource> MakeLiveSource();

}  // namespace tools
