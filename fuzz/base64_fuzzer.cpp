// Base64 against Qt's, both ways.
#include <QByteArray>

#include "fuzz/input.h"

using forge::Buffer;

void fuzz::Run(const Buffer& input) {
  const uint8_t* data = input.GetData();
  const std::string bytes(data, data + input.GetSize());
  const auto text = QByteArray::fromStdString(bytes);
  const std::string encoded = input.ToBase64();
  assert(encoded == text.toBase64().toStdString());
  assert(Buffer::FromBase64(encoded) == input);

  // Qt takes any text; it was canonical if what it holds encodes to it.
  const QByteArray held = QByteArray::fromBase64(text);
  Buffer expected;
  if (held.toBase64() == text) expected = Buffer({held.begin(), held.end()});
  assert(Buffer::FromBase64(bytes) == expected);
}
