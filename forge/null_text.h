// The exception for a null text, for the entries whose contract says that they throw.
//
// Threads: any.
#pragma once

#include <stdexcept>
#include <string_view>

namespace forge {

class NullTextError : public std::logic_error {
 public:
  NullTextError() : std::logic_error("basic_string: construction from null is not valid") {}
};

inline std::string_view RequireText(const char* text) {
  if (!text) throw NullTextError();
  return text;
}

}  // namespace forge
