// Base64 with AVX-512 and its byte permutations (VBMI): 64 characters at a time.
#include "forge/base64_variants.h"

#if defined(__x86_64__)
#include <immintrin.h>

#include "forge/base64_tables.h"

#define TAVO_AVX512 [[gnu::target("avx512f,avx512bw,avx512vbmi")]]

namespace forge::base64 {
namespace {

constexpr std::size_t kBlockBytes = 48;
constexpr std::size_t kBlockText = 64;
constexpr __mmask64 kBytesOfBlock = (__mmask64{1} << kBlockBytes) - 1;

// Where each byte of a vector comes from.
struct Order {
  alignas(64) uint8_t from[64] = {};
};

// Each group of three bytes b0 b1 b2 becomes the four bytes b1 b0 b2 b1.
constexpr Order SpreadGroups() {
  constexpr std::size_t kSpread[] = {1, 0, 2, 1};
  Order order;
  for (std::size_t i = 0; i < 64; ++i) {
    order.from[i] = static_cast<uint8_t>(i / 4 * 3 + kSpread[i % 4]);
  }
  return order;
}
constexpr Order kSpreadGroups = SpreadGroups();

// The first bit of each digit in the eight bytes of two spread groups, lowest byte first.
constexpr int64_t kFirstBits = 0x3036242A1016040A;

// Four blocks decode to groups in four bytes each, lowest byte first. Their 192 bytes fill three
// vectors; each takes its bytes from the block of the same number and the next one.
constexpr Order JoinGroups(std::size_t vector) {
  Order order;
  for (std::size_t i = 0; i < 64; ++i) {
    const std::size_t byte = 64 * vector + i;
    order.from[i] = static_cast<uint8_t>(byte / 3 * 4 + 2 - byte % 3 - 64 * vector);
  }
  return order;
}
constexpr Order kJoinGroups[] = {JoinGroups(0), JoinGroups(1), JoinGroups(2)};

TAVO_AVX512 inline __m512i Load(const void* memory) { return _mm512_loadu_si512(memory); }

// The groups of a block, in four bytes each. Sets a highest bit of `damage` for a wrong character:
// either it has that bit itself, or its digit is kNoDigit.
TAVO_AVX512 inline __m512i DecodeBlock(const char* text, __m512i& damage) {
  const __m512i block = Load(text);
  const __m512i digits =
      _mm512_permutex2var_epi8(Load(kAsciiDigits.of), block, Load(kAsciiDigits.of + 64));
  damage = _mm512_or_si512(damage, _mm512_or_si512(digits, block));
  const __m512i pairs = _mm512_maddubs_epi16(digits, _mm512_set1_epi32(kJoinDigits));
  return _mm512_madd_epi16(pairs, _mm512_set1_epi32(kJoinPairs));
}

TAVO_AVX512 inline bool IsDamaged(__m512i damage) { return _mm512_movepi8_mask(damage) != 0; }

TAVO_AVX512 inline void StoreGroups(uint8_t* data, std::size_t vector, __m512i low, __m512i high) {
  const __m512i order = Load(kJoinGroups[vector].from);
  _mm512_storeu_si512(data + 64 * vector, _mm512_permutex2var_epi8(low, order, high));
}

// Decodes four blocks. False, and nothing is written, if they hold a wrong character.
TAVO_AVX512 inline bool DecodeFourBlocks(const char* text, uint8_t* data) {
  __m512i damage = _mm512_setzero_si512();
  const __m512i first = DecodeBlock(text, damage);
  const __m512i second = DecodeBlock(text + kBlockText, damage);
  const __m512i third = DecodeBlock(text + 2 * kBlockText, damage);
  const __m512i fourth = DecodeBlock(text + 3 * kBlockText, damage);
  if (IsDamaged(damage)) return false;
  StoreGroups(data, 0, first, second);
  StoreGroups(data, 1, second, third);
  StoreGroups(data, 2, third, fourth);
  return true;
}

// As above, for one block, which gives the first 48 bytes of the first vector.
TAVO_AVX512 inline bool DecodeOneBlock(const char* text, uint8_t* data) {
  __m512i damage = _mm512_setzero_si512();
  const __m512i groups = DecodeBlock(text, damage);
  if (IsDamaged(damage)) return false;
  const __m512i bytes = _mm512_permutexvar_epi8(Load(kJoinGroups[0].from), groups);
  _mm512_mask_storeu_epi8(data, kBytesOfBlock, bytes);
  return true;
}

}  // namespace

bool IsAvx512Supported() {
  __builtin_cpu_init();
  return __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
         __builtin_cpu_supports("avx512vbmi");
}

TAVO_AVX512 std::size_t EncodeAvx512(const uint8_t* data, std::size_t size, char* text) {
  std::size_t done = 0;
  for (; size - done >= kBlockBytes; done += kBlockBytes, text += kBlockText) {
    const __m512i bytes = _mm512_maskz_loadu_epi8(kBytesOfBlock, data + done);
    const __m512i groups = _mm512_permutexvar_epi8(Load(kSpreadGroups.from), bytes);
    // Two bits beside each digit remain, which the next permutation ignores.
    const __m512i digits = _mm512_multishift_epi64_epi8(_mm512_set1_epi64(kFirstBits), groups);
    _mm512_storeu_si512(text, _mm512_permutexvar_epi8(digits, Load(kAlphabet)));
  }
  return done;
}

TAVO_AVX512 std::size_t DecodeAvx512(const char* text, std::size_t length, uint8_t* data) {
  std::size_t done = 0;
  for (; length - done > 4 * kBlockText; done += 4 * kBlockText, data += 4 * kBlockBytes) {
    if (!DecodeFourBlocks(text + done, data)) break;
  }
  for (; length - done > kBlockText; done += kBlockText, data += kBlockBytes) {
    if (!DecodeOneBlock(text + done, data)) break;
  }
  return done;
}

}  // namespace forge::base64
#endif
