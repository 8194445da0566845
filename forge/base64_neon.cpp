// Base64 with NEON: 64 characters at a time.
#include "forge/base64_variants.h"

#if defined(__arm__)
#include <arm_neon.h>
#include <asm/hwcap.h>
#include <sys/auxv.h>

#include "forge/base64_alphabet.h"

// Only these functions use NEON: the processors that the library is built for may lack it.
#define TAVO_NEON [[gnu::target("fpu=neon")]]

namespace forge::base64 {
namespace {

constexpr std::size_t kBlockBytes = 48;
constexpr std::size_t kBlockText = 64;

// All digits are among the 80 characters from "+" to "z".
constexpr uint8_t kFirstCharacter = '+';

TAVO_NEON inline uint8x8x4_t LoadTable(const void* memory) {
  const auto* bytes = static_cast<const uint8_t*>(memory);
  return {{vld1_u8(bytes), vld1_u8(bytes + 8), vld1_u8(bytes + 16), vld1_u8(bytes + 24)}};
}

// A look-up leaves the elements alone whose index is beyond its table.
TAVO_NEON inline uint8x8_t CharactersOf(uint8x8_t digits) {
  const uint8x8_t low = vtbl4_u8(LoadTable(kAlphabet), digits);
  return vtbx4_u8(low, LoadTable(kAlphabet + 32), vsub_u8(digits, vdup_n_u8(32)));
}

TAVO_NEON inline uint8x16_t CharactersOf(uint8x16_t digits) {
  return vcombine_u8(CharactersOf(vget_low_u8(digits)), CharactersOf(vget_high_u8(digits)));
}

TAVO_NEON inline uint8x8_t DigitsOf(uint8x8_t characters) {
  const uint8_t* table = kAsciiDigits.of + kFirstCharacter;
  const uint8x8_t index = vsub_u8(characters, vdup_n_u8(kFirstCharacter));
  uint8x8_t digits = vtbx4_u8(vdup_n_u8(kNoDigit), LoadTable(table), index);
  digits = vtbx4_u8(digits, LoadTable(table + 32), vsub_u8(index, vdup_n_u8(32)));
  const uint8x8x2_t last = {{vld1_u8(table + 64), vld1_u8(table + 72)}};
  return vtbx2_u8(digits, last, vsub_u8(index, vdup_n_u8(64)));
}

TAVO_NEON inline uint8x16_t DigitsOf(uint8x16_t characters) {
  return vcombine_u8(DigitsOf(vget_low_u8(characters)), DigitsOf(vget_high_u8(characters)));
}

// Whether one of the digits is kNoDigit.
TAVO_NEON inline bool IsDamaged(const uint8x16x4_t& digits) {
  const uint8x16_t all =
      vorrq_u8(vorrq_u8(digits.val[0], digits.val[1]), vorrq_u8(digits.val[2], digits.val[3]));
  const uint8x8_t folded = vorr_u8(vget_low_u8(all), vget_high_u8(all));
  return (vget_lane_u64(vreinterpret_u64_u8(folded), 0) & 0x8080808080808080) != 0;
}

}  // namespace

bool IsNeonSupported() { return (getauxval(AT_HWCAP) & HWCAP_NEON) != 0; }

TAVO_NEON std::size_t EncodeNeon(const uint8_t* data, std::size_t size, char* text) {
  const uint8x16_t digit = vdupq_n_u8(63);
  std::size_t done = 0;
  for (; size - done >= kBlockBytes; done += kBlockBytes, text += kBlockText) {
    const uint8x16x3_t bytes = vld3q_u8(data + done);
    const uint8x16_t second = vsliq_n_u8(vshrq_n_u8(bytes.val[1], 4), bytes.val[0], 4);
    const uint8x16_t third = vsliq_n_u8(vshrq_n_u8(bytes.val[2], 6), bytes.val[1], 2);
    const uint8x16x4_t characters = {
        {CharactersOf(vshrq_n_u8(bytes.val[0], 2)), CharactersOf(vandq_u8(second, digit)),
         CharactersOf(vandq_u8(third, digit)), CharactersOf(vandq_u8(bytes.val[2], digit))}};
    vst4q_u8(reinterpret_cast<uint8_t*>(text), characters);
  }
  return done;
}

TAVO_NEON std::size_t DecodeNeon(const char* text, std::size_t length, uint8_t* data) {
  std::size_t done = 0;
  for (; length - done > kBlockText; done += kBlockText, data += kBlockBytes) {
    const uint8x16x4_t block = vld4q_u8(reinterpret_cast<const uint8_t*>(text + done));
    const uint8x16x4_t digits = {{DigitsOf(block.val[0]), DigitsOf(block.val[1]),
                                  DigitsOf(block.val[2]), DigitsOf(block.val[3])}};
    if (IsDamaged(digits)) break;
    const uint8x16x3_t bytes = {{vsliq_n_u8(vshrq_n_u8(digits.val[1], 4), digits.val[0], 2),
                                 vsliq_n_u8(vshrq_n_u8(digits.val[2], 2), digits.val[1], 4),
                                 vsliq_n_u8(digits.val[3], digits.val[2], 6)}};
    vst3q_u8(data, bytes);
  }
  return done;
}

}  // namespace forge::base64
#endif
