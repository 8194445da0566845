// The processes of this machine, as /proc tells them.
//
// Threads: any.
// Errors:  what cannot be read is left out.
#pragma once

#include <sys/types.h>

#include <set>

namespace tools {

// The processes whose parent this process is. With a subreaper the orphans are among them.
std::set<pid_t> FindChildren();

// The processes of the process group.
std::set<pid_t> FindGroup(pid_t group);

}  // namespace tools
