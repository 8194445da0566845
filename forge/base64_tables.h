// The alphabet of Base64, and look-up tables that several variants of the codec use.
#pragma once

#include <cstddef>
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

// The factors of multiplications that add neighbours and so join them: two digits to 12 bits, two
// such numbers to a group of 24 bits.
inline constexpr int32_t kJoinDigits = 0x01400140;
inline constexpr int32_t kJoinPairs = 0x00011000;

// What vector instructions look up by four bits.
struct Table16 {
  int8_t at[16] = {};
};

// A character minus its digit: of capital letters, small letters, the ten numerals, "+" and "/".
inline constexpr Table16 kToCharacter = {
    {'A', 'a' - 26, -4, -4, -4, -4, -4, -4, -4, -4, -4, -4, '+' - 62, '/' - 63, 0, 0}};

// The rows of ASCII have 16 characters each; the upper half of a character is its row, the lower
// half its column.

// A digit minus its character, by the row of the character. "/" is counted as of row 1, which has
// no digits, because "+" is in the same row.
inline constexpr Table16 kToDigit = {
    {0, 63 - '/', 62 - '+', 52 - '0', -'A', -'A', 26 - 'a', 26 - 'a', 0, 0, 0, 0, 0, 0, 0, 0}};

// The rows that have a digit in each column: bit n stands for row n.
constexpr Table16 DigitRows() {
  Table16 table;
  for (std::size_t character = 0; character < 128; ++character) {
    if (kAsciiDigits.of[character] == kNoDigit) continue;
    auto& rows = table.at[character % 16];
    rows = static_cast<int8_t>(rows | 1 << (character / 16));
  }
  return table;
}
inline constexpr Table16 kDigitRows = DigitRows();

}  // namespace forge::base64
