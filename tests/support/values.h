// Values for tests, and their bytes as text.
#pragma once

#include <string>
#include <vector>

#include <QByteArray>

#include "tools/value_printer.h"

// GoogleTest prints values as `tavo decode` does.
namespace cw {
inline void PrintTo(const EncodableValue& value, std::ostream* stream) {
  *stream << tools::Describe(value);
}
}  // namespace cw

namespace test {

using Bytes = std::vector<uint8_t>;

inline Bytes BytesOf(const forge::Buffer& buffer) {
  return {buffer.GetData(), buffer.GetData() + buffer.GetSize()};
}

inline Bytes FromHex(const std::string& text) {  // Blanks do not count.
  const QByteArray bytes = QByteArray::fromHex(QByteArray::fromStdString(text));
  return {bytes.begin(), bytes.end()};
}

inline std::string ToHex(const Bytes& bytes) {
  return QByteArray::fromStdString({bytes.begin(), bytes.end()}).toHex().toStdString();
}

}  // namespace test
