// Texts as JSON.
//
// Threads: any.
// Errors:  std::bad_alloc.
#pragma once

#include <string>
#include <string_view>

namespace trace {

// Whether the text is ASCII without control characters, quotes and backslashes, as a Base64 text
// is.
bool IsPlain(std::string_view text);

// Appends the text between quotes. Bytes that are no UTF-8 become U+FFFD.
void AppendJsonText(std::string* json, std::string_view text);

}  // namespace trace
