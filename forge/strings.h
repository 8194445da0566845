// Checked conversion of texts.
//
//   uint16_t port = 0;
//   if (!forge::strings::ParseInt(text, port)) return Refuse(text);
//
// Threads: any.
// Errors:  a text that cannot be converted is a false result and a warning line.
#pragma once

#include <charconv>
#include <string_view>
#include <system_error>

#include "forge/logger.h"

namespace forge::strings {

// Parses a whole text of decimal digits, with a leading "-" where T is signed. White space, a "+"
// and any other character make the text invalid. Returns true and stores the number in `out`. For
// an invalid text, an empty text and a number that T cannot hold it returns false, stores 0 and
// writes a warning line.
template <typename T>
bool ParseInt(std::string_view text, T& out) {
  out = 0;
  if (text.empty()) {
    FORGE_LOG(kWarn) << "Could not convert empty string to uint.";
    return false;
  }
  T value = 0;
  const char* const last = text.data() + text.size();
  const auto [end, error] = std::from_chars(text.data(), last, value);
  if (error != std::errc() || end != last) {
    FORGE_LOG(kWarn) << "Could not convert string \"" << text << "\" to integer value.";
    return false;
  }
  out = value;
  return true;
}

}  // namespace forge::strings
