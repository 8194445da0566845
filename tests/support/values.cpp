#include "tests/support/values.h"

#include <utility>

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
namespace {

using cw::EncodableList;
using cw::EncodableMap;
using cw::EncodableValue;

// Small ranges, so that equal values and common prefixes happen.
int Below(int limit, std::mt19937& random) {
  return std::uniform_int_distribution<int>(0, limit - 1)(random);
}

template <typename Sequence>
EncodableValue RandomSequence(std::mt19937& random) {
  Sequence sequence;
  for (int left = Below(4, random); left > 0; --left) {
    sequence.push_back(static_cast<typename Sequence::value_type>(Below(3, random)));
  }
  return sequence;
}

EncodableValue RandomList(std::mt19937& random, int depth) {
  EncodableList list;
  for (int left = Below(4, random); left > 0; --left) list.push_back(RandomValue(random, depth));
  return list;
}

EncodableValue RandomMap(std::mt19937& random, int depth) {
  EncodableMap map;
  for (int left = Below(4, random); left > 0; --left) {
    EncodableValue key = RandomValue(random, depth);
    map.emplace(std::move(key), RandomValue(random, depth));
  }
  return map;
}

}  // namespace

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

EncodableValue RandomValue(std::mt19937& random, int depth) {
  switch (Below(depth > 0 ? 13 : 11, random)) {
    case 0:
      return {};
    case 1:
      return Below(2, random) == 0;
    case 2:
      return int32_t{Below(3, random) - 1};
    case 3:
      return int64_t{Below(3, random) - 1};
    case 4:
      return 0.5 * Below(3, random);
    case 5:
      return RandomSequence<std::string>(random);
    case 6:
      return RandomSequence<std::vector<uint8_t>>(random);
    case 7:
      return RandomSequence<std::vector<int32_t>>(random);
    case 8:
      return RandomSequence<std::vector<int64_t>>(random);
    case 9:
      return RandomSequence<std::vector<double>>(random);
    case 10:
      return RandomSequence<std::vector<float>>(random);
    case 11:
      return RandomList(random, depth - 1);
    default:
      return RandomMap(random, depth - 1);
  }
}

}  // namespace test
