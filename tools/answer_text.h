// Answers and notifications as the subcommands print them.
//
// Threads: any.
#pragma once

#include <string>

#include "flrpc/message.h"

namespace tools {

// {"method": METHOD, "params": VALUE} on one line.
std::string ToLine(const flrpc::Message::Notification& notification);

// "error CODE: MESSAGE", and its data on a second line unless they are null.
std::string ToLines(const flrpc::Message::Error& error);

}  // namespace tools
