// Desktop entries that the tool writes, so that its own subcommands are started as tasks.
//
// Threads: any.
// Errors:  CommandError with kFailed; with kWrongUsage for what is no name of a task.
#pragma once

#include <string>
#include <vector>

namespace tools {

// Returns the path of a file for the arguments of an entry. Links and ".." are kept as they are.
std::string MakeAbsolute(const std::string& file);

// Writes DIRECTORY/NAME.desktop, whose command is this program with these arguments, and returns
// its path. An entry of that name that the tool has not written is kept, which is an error.
std::string WriteDesktopEntry(const std::string& directory, const std::string& name,
                              const std::vector<std::string>& arguments);

}  // namespace tools
