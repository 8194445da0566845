// JSON that a user gives to a subcommand.
//
// Threads: any.
// Errors:  CommandError with kWrongUsage.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "desk/common/value_json.h"

namespace tools {

// What the help tells of such an argument.
constexpr char kJsonInputHelp[] = "JSON; @FILE: read from the file; -: from standard input";

// Reads the JSON of the argument, of the file of an argument "@FILE", or of standard input for "-".
// An empty argument is null.
desk::Json ReadJson(const std::string& argument);

// Returns the value of the text. Throws std::runtime_error with the reason when it is no JSON, and
// when it nests too deep.
desk::Json ParseJson(const std::string& text);

}  // namespace tools
