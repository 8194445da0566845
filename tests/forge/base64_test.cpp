#include <random>
#include <string>
#include <vector>

#include <QByteArray>

#include "forge/buffer.h"
#include "tests/support/test_base.h"

namespace {

using forge::Buffer;

Buffer BytesOf(const std::string& text) {
  return {reinterpret_cast<const uint8_t*>(text.data()), text.size()};
}

class Base64Test : public test::TestBase {};

TEST_F(Base64Test, OnlyTheCanonicalTextIsAccepted) {
  const char* const rows[] = {
      "",            // nothing
      "Zg=",         // length
      "Z",           //
      "Zg==\n",      //
      "Zm9v\n",      //
      "====",        // padding where digits must be
      "Z===",        //
      "Zg=a",        //
      "=m9v",        //
      "Zg==Zg==",    // padding before the last group
      "Zm8=Zm9v",    //
      "Zh==",        // unused bits that are not zero
      "Zm9=",        //
      "Zm9-",        // another alphabet
      "Zm9_",        //
      "Zm 9",        // white space
      "Zm9\n",       //
      "Zm9v\tm9v",   //
      "Zm\xC3\xA9",  // beyond ASCII
  };
  for (const char* text : rows) EXPECT_EQ(Buffer(), Buffer::FromBase64(text)) << text;
  EXPECT_EQ(Buffer(), Buffer::FromBase64(std::string("Zm9\0", 4)));
}

// Every size up to several rounds of the fast loops, against another implementation.
TEST_F(Base64Test, AgreesWithAnotherImplementationAtEverySize) {
  std::mt19937 random(7);
  for (size_t size = 0; size < 300; ++size) {
    std::string bytes(size, '\0');
    for (char& byte : bytes) byte = static_cast<char>(random());
    const std::string text = BytesOf(bytes).ToBase64();
    ASSERT_EQ(QByteArray::fromStdString(bytes).toBase64().toStdString(), text);
    ASSERT_EQ(BytesOf(bytes), Buffer::FromBase64(text));
  }
}

// A wrong character must be seen wherever it stands: in the fast loop, between, in the last group.
TEST_F(Base64Test, WrongCharacterIsSeenAtEveryPlace) {
  const std::string text = Buffer(std::vector<uint8_t>(96, 0x5A)).ToBase64();
  for (size_t place = 0; place < text.size(); ++place) {
    for (int character = 0; character < 256; ++character) {
      std::string changed = text;
      changed[place] = static_cast<char>(character);
      const bool digit = isalnum(character) || character == '+' || character == '/';
      ASSERT_EQ(digit, Buffer::FromBase64(changed).GetSize() != 0) << place << " " << character;
    }
  }
}

}  // namespace
