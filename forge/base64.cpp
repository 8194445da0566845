#include "forge/base64.h"

#include <endian.h>

#include <algorithm>
#include <cstring>
#include <iterator>

#include "forge/base64_tables.h"
#include "forge/base64_variants.h"

namespace forge::base64 {
namespace {

constexpr char kPadding = '=';

// Both characters of each 12-bit number: two look-ups encode a group of three bytes.
struct CharacterPairs {
  char of[4096][2] = {};

  constexpr CharacterPairs() {
    for (unsigned bits = 0; bits < 4096; ++bits) {
      of[bits][0] = kAlphabet[bits >> 6];
      of[bits][1] = kAlphabet[bits & 63];
    }
  }
};
constexpr CharacterPairs kCharacterPairs;

// The digit of each character, shifted to each of the four places that it can have in a group of
// 24 bits. A character that is no digit has the bit kInvalid, which no digit sets, so one test of a
// combined value covers several characters.
constexpr uint32_t kInvalid = uint32_t{1} << 31;

struct Digits {
  uint32_t at[4][256] = {};

  constexpr Digits() {
    for (auto& place : at) {
      for (auto& digit : place) digit = kInvalid;
    }
    for (uint32_t digit = 0; digit < 64; ++digit) {
      const auto character = static_cast<unsigned char>(kAlphabet[digit]);
      for (unsigned place = 0; place < 4; ++place) at[place][character] = digit << (18 - 6 * place);
    }
  }
};
constexpr Digits kDigits;

// The fast loops work on two groups at a time, in the upper six bytes of a word. Each load and
// store moves the whole word, so the loops stop while two more bytes are left (when decoding: while
// two more groups are left, of which the last may be a single byte).
constexpr std::size_t kWordBytes = 6;
constexpr std::size_t kWordText = 8;

inline uint64_t LoadWord(const uint8_t* data) {
  uint64_t word;
  std::memcpy(&word, data, sizeof word);
  return be64toh(word);
}

inline void StoreWord(uint64_t word, uint8_t* data) {
  word = htobe64(word);
  std::memcpy(data, &word, sizeof word);
}

inline void EncodePair(uint64_t bits, char* text) {
  std::memcpy(text, kCharacterPairs.of[bits & 4095], 2);
}

inline void EncodeWord(uint64_t word, char* text) {
  EncodePair(word >> 52, text);
  EncodePair(word >> 40, text + 2);
  EncodePair(word >> 28, text + 4);
  EncodePair(word >> 16, text + 6);
}

// A group of one to three bytes.
void EncodeGroup(const uint8_t* data, std::size_t size, char* text) {
  uint32_t group = static_cast<uint32_t>(data[0]) << 16;
  if (size > 1) group |= static_cast<uint32_t>(data[1]) << 8;
  if (size > 2) group |= data[2];
  EncodePair(group >> 12, text);
  EncodePair(group, text + 2);
  for (std::size_t i = size; i < 3; ++i) text[i + 1] = kPadding;
}

// The 24 bits of four characters; the bit kInvalid is set when one of them is no digit.
inline uint32_t DigitsOf(const char* text) {
  uint32_t group = 0;
  for (unsigned place = 0; place < 4; ++place) {
    group |= kDigits.at[place][static_cast<unsigned char>(text[place])];
  }
  return group;
}

std::size_t PaddingOf(const char* text, std::size_t length) {
  if (text[length - 1] != kPadding) return 0;
  return text[length - 2] == kPadding ? 2 : 1;
}

// A group whose padding (0 to 2 characters) stands for zero digits.
bool DecodeGroup(const char* text, std::size_t padding, uint8_t* data) {
  char digits[4] = {text[0], text[1], text[2], text[3]};
  for (std::size_t i = 4 - padding; i < 4; ++i) digits[i] = kAlphabet[0];
  const uint32_t group = DigitsOf(digits);
  const uint32_t unused = (uint32_t{1} << (8 * padding)) - 1;  // Only canonical text is accepted.
  if (group & (kInvalid | unused)) return false;
  for (std::size_t i = 0; i < 3 - padding; ++i) {
    data[i] = static_cast<uint8_t>(group >> (16 - 8 * i));
  }
  return true;
}

void EncodePlain(const uint8_t* data, std::size_t size, char* text) {
  // Each round encodes two words. Both are loaded before text is stored, because the compiler has
  // to assume that the text overlaps the data.
  for (; size >= 2 * kWordBytes + 2; size -= 2 * kWordBytes) {
    const uint64_t first = LoadWord(data);
    const uint64_t second = LoadWord(data + kWordBytes);
    EncodeWord(first, text);
    EncodeWord(second, text + kWordText);
    data += 2 * kWordBytes;
    text += 2 * kWordText;
  }
  for (; size > 3; size -= 3, data += 3, text += 4) EncodeGroup(data, 3, text);
  if (size > 0) EncodeGroup(data, size, text);
}

bool DecodePlain(const char* text, std::size_t length, uint8_t* data) {
  for (; length > kWordText + 4; length -= kWordText) {
    const uint32_t first = DigitsOf(text);
    const uint32_t second = DigitsOf(text + 4);
    if ((first | second) & kInvalid) return false;
    StoreWord(static_cast<uint64_t>(first) << 40 | static_cast<uint64_t>(second) << 16, data);
    data += kWordBytes;
    text += kWordText;
  }
  for (; length > 4; length -= 4, text += 4, data += 3) {
    if (!DecodeGroup(text, 0, data)) return false;
  }
  return DecodeGroup(text, PaddingOf(text, length), data);
}

const Variant& Fastest() {
  static const Variant& fastest =
      *std::find_if(std::begin(kVariants), std::end(kVariants),
                    [](auto& variant) { return variant.is_supported(); });
  return fastest;
}

}  // namespace

void Encode(const Variant& variant, const uint8_t* data, std::size_t size, char* text) {
  const std::size_t done = variant.encode ? variant.encode(data, size, text) : 0;
  EncodePlain(data + done, size - done, text + done / 3 * 4);
}

void Encode(const uint8_t* data, std::size_t size, char* text) {
  Encode(Fastest(), data, size, text);
}

std::size_t DecodedSize(const char* text, std::size_t length) {
  if (length < 4 || length % 4 != 0) return 0;
  return length / 4 * 3 - PaddingOf(text, length);
}

bool Decode(const Variant& variant, const char* text, std::size_t length, uint8_t* data) {
  if (length < 4 || length % 4 != 0) return false;
  const std::size_t done = variant.decode ? variant.decode(text, length, data) : 0;
  return DecodePlain(text + done, length - done, data + done / 4 * 3);
}

bool Decode(const char* text, std::size_t length, uint8_t* data) {
  return Decode(Fastest(), text, length, data);
}

}  // namespace forge::base64
