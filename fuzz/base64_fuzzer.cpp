// Base64 against Qt's, both ways.
#include <string>

#include <QByteArray>

#include "forge/buffer.h"
#include "fuzz/input.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using forge::Buffer;
  const fuzz::Limits limits;
  const auto bytes = QByteArray::fromStdString(std::string(data, data + size));
  const std::string encoded = Buffer(data, size).ToBase64();
  FUZZ_CHECK(encoded == bytes.toBase64().toStdString());
  FUZZ_CHECK(Buffer::FromBase64(encoded) == Buffer(data, size));

  // Qt takes any text; the text was canonical if what it holds encodes to it.
  const std::string held = QByteArray::fromBase64(bytes).toStdString();
  const bool is_canonical = QByteArray::fromStdString(held).toBase64() == bytes;
  const auto* expected = is_canonical ? reinterpret_cast<const uint8_t*>(held.data()) : nullptr;
  FUZZ_CHECK(Buffer::FromBase64(bytes.toStdString()) == Buffer(expected, held.size()));
  FUZZ_CHECK(limits.WereKept());
  return 0;
}
