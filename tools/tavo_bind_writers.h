// What `tavo bind` makes of a description (tavo_bind_description.h).
#pragma once

#include <string>

#include "tools/tavo_bind_description.h"

namespace tools {

// A C++ header with the types, a client class over kit::Caller and a server base class over
// kit::Responder. `source` is the name of the description's file.
std::string WriteHeader(const Description& description, const std::string& source,
                        const std::string& name_space);

// A page in Markdown.
std::string WritePage(const Description& description, const std::string& source);

}  // namespace tools
