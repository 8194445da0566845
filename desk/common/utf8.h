// Whether texts are UTF-8.
//
// Threads: any.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace desk {

// Returns the length of the well-formed sequence that begins at this byte of the text, or 0.
inline size_t GetSequenceLength(std::string_view text, size_t at) {
  const auto byte = [&](size_t i) { return static_cast<uint8_t>(text[i]); };
  const uint8_t first = byte(at);
  const size_t length = first < 0x80 ? 1 : first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
  if (length > 1 && (first < 0xC2 || first > 0xF4 || at + length > text.size())) return 0;
  for (size_t i = 1; i < length; ++i) {
    if ((byte(at + i) & 0xC0) != 0x80) return 0;
  }
  const uint8_t second = length > 2 ? byte(at + 1) : 0x80;
  const bool is_overlong = (first == 0xE0 && second < 0xA0) || (first == 0xF0 && second < 0x90);
  const bool is_beyond = (first == 0xED && second > 0x9F) || (first == 0xF4 && second > 0x8F);
  return is_overlong || is_beyond ? 0 : length;
}

inline bool IsUtf8(std::string_view text) {
  for (size_t at = 0; at < text.size();) {
    const size_t length = GetSequenceLength(text, at);
    if (length == 0) return false;
    at += length;
  }
  return true;
}

}  // namespace desk
