// Buffers and their Base64 text.
#include "forge/buffer.h"

#include <QByteArray>

#include "forge/base64_variants.h"
#include "tests/support/log_capture.h"

namespace base64 = forge::base64;
using forge::Buffer;
using BufferTest = test::LogTest;

TEST_F(BufferTest, EmptyBufferHasNoDataWhateverIsReserved) {
  Buffer buffer(nullptr, 5);
  buffer.WriteBytes(nullptr, 3);
  buffer.Reserve(100);
  EXPECT_EQ(nullptr, buffer.GetData());
  EXPECT_EQ(nullptr, buffer.Extract());
  buffer.WriteByte(1);
  EXPECT_EQ(1, buffer.Extract()->at(0));
  EXPECT_EQ(Buffer(), buffer);
  EXPECT_EQ(FORGE_RESULT_INVALID_ARGUMENT, buffer.ToCAPI(nullptr, 12));
  ExpectError("Structure pointer is null");
}

TEST_F(BufferTest, AlignmentCountsFromTheFirstByte) {
  const uint8_t rows[][3] = {
      // The size, the alignment, the size afterwards.
      {9, 8, 16}, {16, 8, 16}, {0, 8, 0}, {5, 0, 5}, {5, 3, 6}, {1, 255, 255}};
  for (const auto& [before, alignment, after] : rows) {
    std::vector<uint8_t> bytes(before, 0xFF);
    Buffer buffer(bytes);
    buffer.WriteAlignment(alignment);
    bytes.resize(after);
    EXPECT_EQ(Buffer(bytes), buffer);
  }
}

// Each character stands once in the text, at changing places and alignments.
static void ExpectEveryCharacterJudged(const base64::Variant& variant, const std::string& text) {
  std::string encoded = text;
  for (std::size_t character = 0; character < 256; ++character) {
    const std::size_t from = character % 64, to = 63 - from;
    std::string input = std::string(from, ' ') + text;
    input[from + (character + text.size()) * 7 % text.size()] = static_cast<char>(character);
    std::vector<uint8_t> bytes(to + text.size() / 4 * 3);
    const bool is_digit =
        isalnum(static_cast<int>(character)) || character == '+' || character == '/';
    ASSERT_EQ(is_digit, base64::Decode(variant, &input[from], text.size(), &bytes[to])) << input;
    if (!is_digit) continue;
    base64::Encode(variant, &bytes[to], bytes.size() - to, encoded.data());
    ASSERT_EQ(input.substr(from), encoded) << variant.name;
  }
}

// The sizes lead through several rounds of the fast loops; the wrong characters stand in them,
// behind them and in the last group. Texts that are not canonical are in fuzz/corpus/base64.txt.
TEST_F(BufferTest, Base64AgreesWithQtAtEverySize) {
  QByteArray bytes;
  for (int size = 1; size < 300; ++size) {
    bytes += static_cast<char>(size * 151 + size / 7);
    const Buffer buffer({bytes.begin(), bytes.end()});
    const std::string text = bytes.toBase64().toStdString();
    ASSERT_EQ(text, buffer.ToBase64());
    ASSERT_EQ(buffer, Buffer::FromBase64(text));
    if (size % 3 != 0) continue;  // Padding restricts the last character.
    for (const auto& variant : base64::kVariants) {
      if (variant.is_supported()) ExpectEveryCharacterJudged(variant, text);
    }
  }
}
