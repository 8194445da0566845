// Values for tests, and their bytes as text.
#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "cw/encodable_value.h"
#include "flrpc/message.h"

namespace cw {

void PrintTo(const EncodableValue& value, std::ostream* stream);  // For GoogleTest.

}  // namespace cw

namespace flrpc {

void PrintTo(const Message& message, std::ostream* stream);

}  // namespace flrpc

namespace test {

using Bytes = std::vector<uint8_t>;

Bytes FromHex(const std::string& text);  // Blanks do not count.
std::string ToHex(const Bytes& bytes);
Bytes BytesOf(const forge::Buffer& buffer);

}  // namespace test
