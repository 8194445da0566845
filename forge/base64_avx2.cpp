// Base64 with AVX2: 32 characters at a time.
#include "forge/base64_variants.h"

#if defined(__x86_64__)
#include <immintrin.h>

#include "forge/base64_tables.h"

#define TAVO_AVX2 [[gnu::target("avx2")]]

namespace forge::base64 {
namespace {

constexpr std::size_t kBlockBytes = 24;
constexpr std::size_t kBlockText = 32;

// A block's loads and stores go beyond it: by 4 bytes of data when encoding, by 8 when decoding.
// 16 characters decode to 10 bytes at least.
constexpr std::size_t kBytesBeyond = 4;
constexpr std::size_t kTextBeyond = 16;

// Each group of three bytes b0 b1 b2 becomes the four bytes b1 b0 b2 b1.
constexpr Table16 kSpreadGroups = {{1, 0, 2, 1, 4, 3, 5, 4, 7, 6, 8, 7, 10, 9, 11, 10}};

// The reverse, from groups in four bytes each, lowest byte first. -1 gives a zero.
constexpr Table16 kJoinGroups = {{2, 1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, -1, -1, -1, -1}};

// The bit of each row, as in kDigitRows. Rows beyond ASCII share that of row 0, which has no
// digits.
constexpr Table16 RowBits() {
  Table16 table;
  for (std::size_t row = 0; row < 16; ++row) {
    table.at[row] = static_cast<int8_t>(row < 8 ? 1 << row : 1);
  }
  return table;
}
constexpr Table16 kRowBits = RowBits();

TAVO_AVX2 inline __m128i LoadHalf(const void* memory) {
  return _mm_loadu_si128(static_cast<const __m128i*>(memory));
}

// A byte shuffle works on each half of a vector, here with the same table.
TAVO_AVX2 inline __m256i Load(const Table16& table) {
  return _mm256_broadcastsi128_si256(LoadHalf(table.at));
}

TAVO_AVX2 inline __m256i LookUp(const Table16& table, __m256i index) {
  return _mm256_shuffle_epi8(Load(table), index);
}

TAVO_AVX2 inline __m256i LoadGroups(const uint8_t* data) {
  const __m256i bytes = _mm256_set_m128i(LoadHalf(data + 12), LoadHalf(data));
  return _mm256_shuffle_epi8(bytes, Load(kSpreadGroups));
}

// The digits of spread groups. A multiplication shifts each 16 bits by a distance of its own: the
// first gives the digits in even bytes, the second those in odd bytes.
TAVO_AVX2 inline __m256i DigitsOfGroups(__m256i groups) {
  const __m256i even = _mm256_mulhi_epu16(groups, _mm256_set1_epi32(0x04000040));
  const __m256i odd = _mm256_mullo_epi16(groups, _mm256_set1_epi32(0x01000010));
  const __m256i both = _mm256_blendv_epi8(even, odd, _mm256_set1_epi16(-0x100));
  return _mm256_and_si256(both, _mm256_set1_epi8(63));
}

TAVO_AVX2 inline __m256i CharactersOf(__m256i digits) {
  const __m256i beyond_letters = _mm256_subs_epu8(digits, _mm256_set1_epi8(51));
  const __m256i is_beyond_capitals = _mm256_cmpgt_epi8(digits, _mm256_set1_epi8(25));  // True: -1.
  const __m256i kind = _mm256_sub_epi8(beyond_letters, is_beyond_capitals);
  return _mm256_add_epi8(digits, LookUp(kToCharacter, kind));
}

TAVO_AVX2 inline __m256i RowsOf(__m256i characters) {
  return _mm256_and_si256(_mm256_srli_epi32(characters, 4), _mm256_set1_epi8(0x0F));
}

TAVO_AVX2 inline bool AreDigits(__m256i characters, __m256i rows) {
  const __m256i columns = _mm256_and_si256(characters, _mm256_set1_epi8(0x0F));
  return _mm256_testc_si256(LookUp(kDigitRows, columns), LookUp(kRowBits, rows)) != 0;
}

TAVO_AVX2 inline __m256i DigitsOf(__m256i characters, __m256i rows) {
  const __m256i is_slash = _mm256_cmpeq_epi8(characters, _mm256_set1_epi8('/'));  // True: -1.
  return _mm256_add_epi8(characters, LookUp(kToDigit, _mm256_add_epi8(rows, is_slash)));
}

// Writes 24 bytes, and 8 zeroes behind them.
TAVO_AVX2 inline void StoreDigits(__m256i digits, uint8_t* data) {
  const __m256i pairs = _mm256_maddubs_epi16(digits, _mm256_set1_epi32(kJoinDigits));
  const __m256i groups = _mm256_madd_epi16(pairs, _mm256_set1_epi32(kJoinPairs));
  const __m256i halves = _mm256_shuffle_epi8(groups, Load(kJoinGroups));
  const __m256i bytes =
      _mm256_permutevar8x32_epi32(halves, _mm256_setr_epi32(0, 1, 2, 4, 5, 6, 3, 7));
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(data), bytes);
}

}  // namespace

bool IsAvx2Supported() {
  __builtin_cpu_init();
  return __builtin_cpu_supports("avx2");
}

TAVO_AVX2 std::size_t EncodeAvx2(const uint8_t* data, std::size_t size, char* text) {
  std::size_t done = 0;
  for (; size - done >= kBlockBytes + kBytesBeyond; done += kBlockBytes, text += kBlockText) {
    const __m256i digits = DigitsOfGroups(LoadGroups(data + done));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(text), CharactersOf(digits));
  }
  return done;
}

TAVO_AVX2 std::size_t DecodeAvx2(const char* text, std::size_t length, uint8_t* data) {
  std::size_t done = 0;
  for (; length - done >= kBlockText + kTextBeyond; done += kBlockText, data += kBlockBytes) {
    const auto* block = reinterpret_cast<const __m256i*>(text + done);
    const __m256i characters = _mm256_loadu_si256(block);
    const __m256i rows = RowsOf(characters);
    if (!AreDigits(characters, rows)) break;
    StoreDigits(DigitsOf(characters, rows), data);
  }
  return done;
}

}  // namespace forge::base64
#endif
