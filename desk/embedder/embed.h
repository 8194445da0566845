// What `tavo-embed` and `tavo embed` do: run a plug-in on a desk (docs/embedder.md).
//
// Threads: the main thread. The call takes SIGINT and SIGTERM over.
#pragma once

#include <string>

namespace desk {

// Returns the exit code of the process. The words behind the first are the command line; `program`
// is the name in usage and errors.
int RunEmbed(int argc, char** argv, const std::string& program);

}  // namespace desk
