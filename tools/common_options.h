// Arguments that several subcommands have.
//
// Ownership: what they point to must live until the command line is parsed.
#pragma once

#include <string>

#include "desk/common/command_line.h"

namespace tools {

// TASK, which may not be empty.
void AddTask(desk::Command& command, std::string* task);

// METHOD, which may not be empty, and the optional PARAMS (tools/json_argument.h).
void AddMessage(desk::Command& command, std::string* method, std::string* params);

// --timeout in seconds, with its default.
desk::Option AddTimeout(desk::Command& command, double* seconds, const std::string& help);

}  // namespace tools
