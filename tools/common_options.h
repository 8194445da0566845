// Arguments that several subcommands have.
//
// Ownership: what they point to must live until the command line is parsed.
#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace tools {

// TASK, which may not be empty.
void AddTask(CLI::App& command, std::string* task);

// METHOD, which may not be empty, and the optional PARAMS (tools/json_argument.h).
void AddMessage(CLI::App& command, std::string* method, std::string* params);

// --timeout in seconds, with its default.
CLI::Option* AddTimeout(CLI::App& command, double* seconds, const std::string& help);

}  // namespace tools
