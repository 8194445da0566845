// Base64 against a second, plain implementation, both ways.
#include <string>
#include <string_view>

#include "forge/buffer.h"
#include "fuzz/input.h"

namespace {

using Bytes = std::vector<uint8_t>;

constexpr std::string_view kAlphabet =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

std::string Encode(const Bytes& bytes) {
  std::string text;
  for (size_t at = 0; at < bytes.size(); at += 3) {
    uint32_t bits = 0;
    for (size_t i = at; i < at + 3; ++i) bits = bits << 8 | (i < bytes.size() ? bytes[i] : 0u);
    for (size_t i = 0; i < 4; ++i) {
      text += at + i <= bytes.size() ? kAlphabet[bits >> (18 - 6 * i) & 63] : '=';
    }
  }
  return text;
}

// Of any text: what its digits hold. It was canonical if that encodes to the text.
Bytes DecodeLeniently(const std::string& text) {
  Bytes bytes;
  uint32_t bits = 0, count = 0;
  for (const char character : text) {
    const size_t digit = kAlphabet.find(character);
    if (digit == std::string_view::npos) continue;
    bits = bits << 6 | static_cast<uint32_t>(digit);
    count += 6;
    if (count >= 8) bytes.push_back(static_cast<uint8_t>(bits >> (count -= 8)));
  }
  return bytes;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const fuzz::Limits limits;
  const Bytes bytes(data, data + size);
  const std::string encoded = forge::Buffer(bytes).ToBase64();
  FUZZ_CHECK(encoded == Encode(bytes));
  FUZZ_CHECK(forge::Buffer::FromBase64(encoded) == forge::Buffer(bytes));

  const std::string text(bytes.begin(), bytes.end());
  const Bytes decoded = DecodeLeniently(text);
  const bool is_canonical = Encode(decoded) == text;
  FUZZ_CHECK(forge::Buffer::FromBase64(text) == forge::Buffer(is_canonical ? decoded : Bytes()));
  FUZZ_CHECK(limits.WereKept());
  return 0;
}
