#include <string>
#include <vector>

#include <QByteArray>

#include "forge/buffer.h"
#include "tests/support/test_base.h"

namespace {

using forge::Buffer;
using Bytes = std::vector<uint8_t>;

class Base64Test : public test::TestBase {};

TEST_F(Base64Test, OnlyTheCanonicalTextIsAccepted) {
  const char* const rows[] = {
      "",          // nothing
      "Z",         // length
      "Zg=",       //
      "Zg==\n",    //
      "====",      // padding where digits must be
      "Z===",      //
      "Zg=a",      //
      "Zg==Zg==",  // padding before the last group
      "Zm8=Zm9v",  //
      "Zh==",      // unused bits that are not zero
      "Zm9=",      //
  };
  for (const char* text : rows) EXPECT_EQ(Buffer(), Buffer::FromBase64(text)) << text;
}

// Every size up to several rounds of the fast loops, against another implementation.
TEST_F(Base64Test, AgreesWithAnotherImplementationAtEverySize) {
  Bytes bytes;
  for (unsigned size = 0; size < 300; ++size) {
    const std::string text = Buffer(bytes).ToBase64();
    const std::string expected(bytes.begin(), bytes.end());
    ASSERT_EQ(QByteArray::fromStdString(expected).toBase64().toStdString(), text);
    ASSERT_EQ(Buffer(bytes), Buffer::FromBase64(text));
    bytes.push_back(static_cast<uint8_t>(size * 151 + size / 7));
  }
}

// A wrong character must be seen wherever it stands: in the fast loop, between, in the last group.
TEST_F(Base64Test, WrongCharacterIsSeenAtEveryPlace) {
  const std::string text = Buffer(Bytes(96, 0x5A)).ToBase64();
  for (size_t place = 0; place < text.size(); ++place) {
    for (int character = 0; character < 256; ++character) {
      std::string changed = text;
      changed[place] = static_cast<char>(character);
      const bool is_digit = isalnum(character) || character == '+' || character == '/';
      ASSERT_EQ(is_digit, Buffer::FromBase64(changed) != Buffer()) << place << " " << character;
    }
  }
}

}  // namespace
