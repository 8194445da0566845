// The alphabet of Base64, and look-up tables that several variants of the codec derive from it.
#pragma once

#include <cstdint>

namespace forge::base64 {

inline constexpr char kAlphabet[] =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

inline constexpr uint8_t kNoDigit = 0xFF;

// The digit of each ASCII character, or kNoDigit.
struct AsciiDigits {
  uint8_t of[128] = {};

  constexpr AsciiDigits() {
    for (auto& digit : of) digit = kNoDigit;
    for (uint8_t digit = 0; digit < 64; ++digit) of[static_cast<uint8_t>(kAlphabet[digit])] = digit;
  }
};
inline constexpr AsciiDigits kAsciiDigits;

}  // namespace forge::base64
