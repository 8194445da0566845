#include "tests/support/values.h"

#include "tools/value_printer.h"

namespace cw {

void PrintTo(const EncodableValue& value, std::ostream* stream) {
  *stream << tools::Describe(value);
}

}  // namespace cw

namespace flrpc {

void PrintTo(const Message& message, std::ostream* stream) { *stream << tools::Describe(message); }

}  // namespace flrpc

namespace test {

Bytes FromHex(const std::string& text) {
  Bytes bytes;
  std::string digits;
  for (const char digit : text) {
    if (digit != ' ') digits += digit;
    if (digits.size() < 2) continue;
    bytes.push_back(static_cast<uint8_t>(std::stoi(digits, nullptr, 16)));
    digits.clear();
  }
  return bytes;
}

std::string ToHex(const Bytes& bytes) {
  std::string text;
  for (const uint8_t byte : bytes) {
    text += "0123456789abcdef"[byte >> 4];
    text += "0123456789abcdef"[byte & 15];
  }
  return text;
}

Bytes BytesOf(const forge::Buffer& buffer) {
  return buffer.GetSize() == 0 ? Bytes()
                               : Bytes(buffer.GetData(), buffer.GetData() + buffer.GetSize());
}

}  // namespace test
