// Base64 with NEON: 64 characters at a time.
#include "forge/base64_variants.h"

#if defined(__arm__)
#include <arm_neon.h>
#include <asm/hwcap.h>
#include <sys/auxv.h>

#include "forge/base64_tables.h"

// Only these functions use NEON: the processors that the library is built for may lack it.
#define TAVO_NEON [[gnu::target("fpu=neon")]]

namespace forge::base64 {
namespace {

constexpr std::size_t kBlockBytes = 48;
constexpr std::size_t kBlockText = 64;

TAVO_NEON inline uint8x8_t LoadHalf(const Table16& table, std::size_t half) {
  return vreinterpret_u8_s8(vld1_s8(table.at + 8 * half));
}

// Two look-ups by three bits: GCC copies the pair of registers, which one by four bits takes, to
// the stack and back each time. The second one leaves alone what has no index in its half.
TAVO_NEON inline uint8x8_t LookUp(const Table16& table, uint8x8_t index) {
  const uint8x8_t low = vtbl1_u8(LoadHalf(table, 0), index);
  return vtbx1_u8(low, LoadHalf(table, 1), vsub_u8(index, vdup_n_u8(8)));
}

TAVO_NEON inline uint8x16_t LookUp(const Table16& table, uint8x16_t index) {
  return vcombine_u8(LookUp(table, vget_low_u8(index)), LookUp(table, vget_high_u8(index)));
}

TAVO_NEON inline uint8x16_t CharactersOf(uint8x16_t digits) {
  const uint8x16_t beyond_letters = vqsubq_u8(digits, vdupq_n_u8(51));
  const uint8x16_t is_beyond_capitals = vcgtq_u8(digits, vdupq_n_u8(25));  // True: -1.
  const uint8x16_t kind = vsubq_u8(beyond_letters, is_beyond_capitals);
  return vaddq_u8(digits, LookUp(kToCharacter, kind));
}

// Clears bits of `good` for a wrong character. Rows beyond ASCII have no bit.
TAVO_NEON inline uint8x16_t DigitsOf(uint8x16_t characters, uint8x16_t& good) {
  const uint8x16_t rows = vshrq_n_u8(characters, 4);
  const uint8x16_t columns = vandq_u8(characters, vdupq_n_u8(0x0F));
  const uint8x16_t row_bits = vshlq_u8(vdupq_n_u8(1), vreinterpretq_s8_u8(rows));
  good = vandq_u8(good, vtstq_u8(row_bits, LookUp(kDigitRows, columns)));
  const uint8x16_t is_slash = vceqq_u8(characters, vdupq_n_u8('/'));  // True: -1.
  return vaddq_u8(characters, LookUp(kToDigit, vaddq_u8(rows, is_slash)));
}

TAVO_NEON inline bool IsAllOnes(uint8x16_t vector) {
  const uint8x8_t folded = vand_u8(vget_low_u8(vector), vget_high_u8(vector));
  return vget_lane_s64(vreinterpret_s64_u8(folded), 0) == -1;
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
    uint8x16_t good = vdupq_n_u8(0xFF);
    const uint8x16_t first = DigitsOf(block.val[0], good);
    const uint8x16_t second = DigitsOf(block.val[1], good);
    const uint8x16_t third = DigitsOf(block.val[2], good);
    const uint8x16_t fourth = DigitsOf(block.val[3], good);
    if (!IsAllOnes(good)) break;
    const uint8x16x3_t bytes = {{vsliq_n_u8(vshrq_n_u8(second, 4), first, 2),
                                 vsliq_n_u8(vshrq_n_u8(third, 2), second, 4),
                                 vsliq_n_u8(fourth, third, 6)}};
    vst3q_u8(data, bytes);
  }
  return done;
}

}  // namespace forge::base64
#endif
