// Base64 according to RFC 4648: standard alphabet, padding, no line breaks. Decoding accepts only
// the canonical text.
//
// Threads: any; plain functions over the caller's memory.
#pragma once

#include <cstddef>
#include <cstdint>

namespace forge::base64 {

// Characters that `size` bytes encode to.
constexpr std::size_t EncodedSize(std::size_t size) { return (size / 3 + (size % 3 != 0)) * 4; }

// Writes EncodedSize(size) characters; no terminating zero.
void Encode(const uint8_t* data, std::size_t size, char* text);

// Bytes that a text of `length` characters decodes to, if it is valid; 0 for an impossible length.
std::size_t DecodedSize(const char* text, std::size_t length);

// Writes DecodedSize(text, length) bytes. False, and undefined bytes, when the text is invalid.
bool Decode(const char* text, std::size_t length, uint8_t* data);

}  // namespace forge::base64
