// Checked conversion of texts.
//
// Threads: any.
#pragma once

#include <charconv>
#include <string_view>
#include <system_error>

#include "forge/logger.h"

namespace forge::strings {

// Decimal digits, after a "-" where T is signed; nothing before and nothing behind. Anything else,
// and what T cannot hold, is false, 0 in `out`, and a warning line.
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
