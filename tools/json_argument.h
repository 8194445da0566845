// Arguments of subcommands that are JSON.
//
// Errors: CommandError with kWrongUsage, and what is wrong with the argument.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>

#include "cw/encodable_value.h"
#include "desk/common/value_json.h"

namespace tools {

// What the help tells of such an argument.
constexpr char kJsonHelp[] = "JSON; @FILE: read from the file; -: from standard input";

// The text of an argument: the argument itself, the content of FILE for "@FILE", or standard input
// for "-".
std::string ReadArgument(const std::string& argument);

// The JSON of an argument, and the value that it stands for. An empty argument is null.
desk::Json ReadJsonArgument(const std::string& argument);
cw::EncodableValue ReadValueArgument(const std::string& argument);

}  // namespace tools
