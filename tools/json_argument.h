// Arguments of subcommands that are JSON.
//
// Errors: CommandError with kWrongUsage, and what is wrong with the argument.
#pragma once

#include <string>

#include "cw/encodable_value.h"

namespace tools {

// The text of an argument: the argument itself, the content of FILE for "@FILE", or standard input
// for "-".
std::string ReadArgument(const std::string& argument);

// The value whose JSON is the text of the argument.
cw::EncodableValue ReadValueArgument(const std::string& argument);

}  // namespace tools
