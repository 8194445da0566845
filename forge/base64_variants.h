// The variants of the Base64 codec: the plain code, and vector code in front of it. Encode and
// Decode (forge/base64.h) use the first of kVariants that the processor supports. Benchmarks and
// tests name one.
//
// Threads: any; plain functions over the caller's memory.
#pragma once

#include <cstddef>
#include <cstdint>

namespace forge::base64 {

// Vector code converts the beginning of its input and returns how much of it that is. The plain
// code converts the rest: the tail that fills no vector, and everything from a block on that holds
// a wrong character. So all variants give the same bytes and accept the same texts.
struct Variant {
  const char* name;
  bool (*is_supported)();  // By the processor that runs this.

  // Encodes whole groups of three bytes and returns the number of bytes. Null: nothing.
  std::size_t (*encode)(const uint8_t* data, std::size_t size, char* text);

  // Decodes whole groups of four digits, but never the last group, and returns the number of
  // characters. What it writes beyond their bytes stays within DecodedSize(text, length). Null:
  // nothing.
  std::size_t (*decode)(const char* text, std::size_t length, uint8_t* data);
};

// As Encode and Decode of forge/base64.h, with the given variant. The processor has to support it.
void Encode(const Variant& variant, const uint8_t* data, std::size_t size, char* text);
bool Decode(const Variant& variant, const char* text, std::size_t length, uint8_t* data);

inline bool IsAlwaysSupported() { return true; }

#if defined(__x86_64__)
bool IsAvx512Supported();
std::size_t EncodeAvx512(const uint8_t* data, std::size_t size, char* text);
std::size_t DecodeAvx512(const char* text, std::size_t length, uint8_t* data);

bool IsAvx2Supported();
std::size_t EncodeAvx2(const uint8_t* data, std::size_t size, char* text);
std::size_t DecodeAvx2(const char* text, std::size_t length, uint8_t* data);
#elif defined(__arm__)
bool IsNeonSupported();
std::size_t EncodeNeon(const uint8_t* data, std::size_t size, char* text);
std::size_t DecodeNeon(const char* text, std::size_t length, uint8_t* data);
#endif

// The fastest one first. The last one works on every processor.
inline constexpr Variant kVariants[] = {
#if defined(__x86_64__)
    {"AVX-512", IsAvx512Supported, EncodeAvx512, DecodeAvx512},
    {"AVX2", IsAvx2Supported, EncodeAvx2, DecodeAvx2},
#elif defined(__arm__)
    {"NEON", IsNeonSupported, EncodeNeon, DecodeNeon},
#endif
    {"plain", IsAlwaysSupported, nullptr, nullptr},
};

}  // namespace forge::base64
