// Values for tests: their bytes as text, and random ones.
#pragma once

#include <ostream>
#include <random>
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

// A value of any encodable alternative, lists and maps at most `depth` deep. No NaN.
cw::EncodableValue RandomValue(std::mt19937& random, int depth);

}  // namespace test
