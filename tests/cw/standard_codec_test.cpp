// The format byte for byte, through both ways that the serializer has: directly on the library's
// own buffer streams, and through the virtual operations.
#include <gtest/gtest.h>

#include <cstring>
#include <stdexcept>

#include "cw/byte_streams.h"
#include "cw/standard_codec_serializer.h"
#include "tests/support/log_capture.h"
#include "tests/support/values.h"

namespace {

using List = cw::EncodableList;
using Map = cw::EncodableMap;
using Value = cw::EncodableValue;
using Serializer = cw::StandardCodecSerializer;
using Lines = std::vector<std::string>;
using test::Bytes;
using test::FromHex;

const std::string kInvalidRead = "Invalid read in StandardCodecByteStreamReader";

// An extension for single letters; all other values pass through the virtual operations, too.
class LetterSerializer final : public Serializer {
 public:
  void WriteValue(const Value& value, cw::ByteStreamWriter* stream) const override {
    const auto* custom = value.GetIf<cw::CustomEncodableValue>();
    if (!custom) return Serializer::WriteValue(value, stream);
    stream->WriteByte(128);
    WriteSize(300, stream);
    stream->WriteByte(*custom->GetIf<uint8_t>());
  }

 protected:
  Value ReadValueOfType(uint8_t type, cw::ByteStreamReader* stream) const override {
    if (type != 128) return Serializer::ReadValueOfType(type, stream);
    EXPECT_EQ(300u, ReadSize(stream));
    return cw::CustomEncodableValue(stream->ReadByte());
  }
};

const LetterSerializer kExtended;
const Serializer& kPlain = Serializer::GetInstance();
const Serializer* const kBoth[] = {&kPlain, &kExtended};

// What the value adds to a buffer that holds `offset` bytes.
std::string Encode(const Serializer& serializer, const Value& value, size_t offset = 0) {
  forge::Buffer buffer(Bytes(offset, 0xEE));
  cw::ByteBufferStreamWriter stream(&buffer);
  serializer.WriteValue(value, &stream);
  return test::ToHex(test::BytesOf(buffer)).substr(2 * offset);
}

Value Decode(const Serializer& serializer, const std::string& hex, size_t offset = 0) {
  const Bytes bytes = FromHex(hex);
  cw::ByteBufferStreamReader stream(bytes.data(), bytes.size());
  for (size_t i = 0; i < offset; ++i) stream.ReadByte();
  return serializer.ReadValue(&stream);
}

class StandardCodecTest : public testing::Test {
 protected:
  void ExpectBothWays(const Value& value, const std::string& hex, const Lines& errors = {}) {
    for (const Serializer* serializer : kBoth) {
      SCOPED_TRACE(hex.substr(0, 100));
      EXPECT_EQ(value, Decode(*serializer, hex));
      EXPECT_EQ(errors, errors_.TakeLines());
    }
  }

  test::ErrorCapture errors_;
};

TEST_F(StandardCodecTest, EveryTagAtEveryAlignment) {
  struct Row {
    Value value;
    std::string head;
    size_t alignment = 1;  // Of what follows the head.
    const char* body = "";
  };
  const Row rows[] = {
      {Value(), "00"},
      {true, "01"},
      {false, "02"},
      {-2, "03feffffff"},
      {int64_t{1}, "040100000000000000"},
      {1.0, "06", 8, "000000000000f03f"},
      {"", "0700"},
      {std::string_view("a\0\x80", 3), "0703610080"},
      {std::vector<uint8_t>{1, 255}, "080201ff"},
      {std::vector<int32_t>{1, -1}, "0902", 4, "01000000ffffffff"},
      {std::vector<int64_t>{}, "0a00"},
      {std::vector<int64_t>{2}, "0a01", 8, "0200000000000000"},
      {std::vector<double>{-2.0}, "0b01", 8, "00000000000000c0"},
      {List{"a", true, List{}}, "0c03070161010c00"},
      {Map{{"b", false}, {2, Map()}}, "0d0203020000000d0007016202"},
      {std::vector<float>{1.0f}, "0e01", 4, "0000803f"},
  };
  for (const Row& row : rows) {
    for (size_t offset = 0; offset < 9; ++offset) {
      SCOPED_TRACE(row.head + " at " + std::to_string(offset));
      std::string bytes = std::string(2 * offset, '0') + row.head;
      while (bytes.size() / 2 % row.alignment != 0) bytes += "00";
      bytes += row.body;
      for (const Serializer* serializer : kBoth) {
        EXPECT_EQ(bytes.substr(2 * offset), Encode(*serializer, row.value, offset));
        // The reader aligns in empty typed lists, too.
        EXPECT_EQ(row.value, Decode(*serializer, bytes + "0000000000000000", offset));
      }
    }
  }
}

TEST_F(StandardCodecTest, SizesTakeOneThreeOrFiveBytes) {
  const std::pair<size_t, const char*> rows[] = {
      {0, "00"},       {1, "01"},       {253, "fd"},       {254, "fefe00"},
      {255, "feff00"}, {256, "fe0001"}, {65535, "feffff"}, {65536, "ff00000100"},
  };
  List all;  // Large and small ones, one after the other.
  for (const auto& [size, expected] : rows) {
    Map map;
    for (size_t i = 0; i < size; ++i) map[static_cast<int32_t>(i)] = true;
    for (const Value& value : List{std::string(size, 'x'), std::vector<uint8_t>(size, 1),
                                   std::vector<double>(size, 1), List(size, true), map}) {
      EXPECT_EQ(expected, Encode(kPlain, value).substr(2, std::strlen(expected)));
      if (size > 0) all.push_back(value);  // The reader aligns in empty typed lists.
    }
  }
  for (size_t size = 1; size < 9000; size += 37) all.push_back(std::string(size, 'y'));
  const std::string bytes = Encode(kPlain, all);
  EXPECT_EQ(Encode(kExtended, all), bytes);
  ExpectBothWays(all, bytes);
  ExpectBothWays("abcde", "07 fe 05 00 61 62 63 64 65");
}

TEST_F(StandardCodecTest, MalformedBytesGiveZerosAndALineEach) {
  struct Row {
    const char* bytes;
    Value value;
    size_t invalid_reads = 0;
  };
  const Row rows[] = {
      {"", {}, 1},
      {"05 02 34 32", "42"},
      // A failed read does not advance: the next value is read from the same place.
      {"0c 02 03 01 01", List{0, true}, 1},
      {"07 03 61 62", std::string(3, '\0'), 1},
      {"09 01 00 00 01", std::vector<int32_t>(1), 1},
      {"07 fe 05", "", 1},
      {"0d 02 07 01 61 01", Map{{"a", true}, {{}, {}}}, 2},
      // The reader aligns in empty lists though the writer does not. At place 4 there is nothing
      // to skip; at place 3 the byte after the empty list is lost.
      {"09 00", std::vector<int32_t>(), 1},
      {"0c 03 00 00 0e 00 aa aa", List{{}, {}, std::vector<float>()}},
      {"0c 04 00 0e 00 aa aa aa 01 02", List{{}, std::vector<float>(), true, false}},
      // The first of equal keys stays, wherever the others come.
      {"0d 03 07 01 62 01 07 01 61 02 07 01 62 02", Map{{"a", false}, {"b", true}}},
      {"0c 02 0d 03 00 0c 01 01 00 0d 01 01 02 00 0c 01 02 03 05 00 00 00",
       List{Map{{{}, List{true}}}, 5}},
  };
  for (const Row& row : rows) {
    ExpectBothWays(row.value, row.bytes, Lines(row.invalid_reads, kInvalidRead));
  }
  ExpectBothWays({}, "0f", {"Unknown type in StandardCodecSerializer::ReadValueOfType: 15"});
  EXPECT_THROW(Decode(kPlain, "0c ff 00 00 00 04"), std::length_error);  // On 64 bits, too.
}

// Recursion took 370 bytes of the stack for each level. Comparison that was built on the
// containers' own `<` compared each key twice: it took 1.7 s for 20 levels of keys.
TEST_F(StandardCodecTest, DepthNeedsNoStack) {
  for (const char* level : {"0c 01", "0d 01 00", "0c 02 00", "0d 01", "0d 02 00 00 00"}) {
    SCOPED_TRACE(level);
    std::string hex;
    for (int i = 0; i < 30000; ++i) hex += level;
    Bytes bytes = FromHex(hex);
    bytes.resize(bytes.size() + 30001);  // The values that maps of nested keys map to.
    const Value value = Value::Deserialize(bytes.data(), bytes.size());
    Value copy = value;
    EXPECT_TRUE(copy == value && !(copy < value) && !(value < copy));
    EXPECT_TRUE(Value::Deserialize(value.Serialize()) == value);
    copy = List{std::move(copy)};
    EXPECT_TRUE(copy != value && (copy < value || value < copy));
  }
}

// The serializer passes from recursion to a walk below the first levels, and back.
TEST_F(StandardCodecTest, DeepTreeIsEncodedLikeAShallowOne) {
  Value value = "innermost";
  for (int level = 0; level < 40; ++level) {
    List list{std::string(static_cast<size_t>(level), 'x'), std::move(value), 0.5};
    list.insert(list.end(), {std::vector<double>{1.5}, std::vector<int32_t>{level}});
    value = Map{{level, std::move(list)}, {List{level, 0.25}, level}};
  }
  const std::string bytes = Encode(kPlain, value);
  EXPECT_EQ(Encode(kExtended, value), bytes);
  ExpectBothWays(value, bytes);
}

TEST_F(StandardCodecTest, ExtensionAppliesInsideListsAndMaps) {
  const Value letter = cw::CustomEncodableValue(uint8_t{'x'});
  const std::string bytes = Encode(kExtended, List{1, Map{{"p", letter}}});
  EXPECT_EQ("0c0203010000000d0107017080fe2c0178", bytes);
  const Value back = Decode(kExtended, bytes);
  const Value& read = back.Get<List>()[1].Get<Map>().at("p");
  EXPECT_EQ('x', *read.Get<cw::CustomEncodableValue>().GetIf<uint8_t>());
}

TEST_F(StandardCodecTest, ReaderKeepsToItsEnd) {
  const uint8_t byte = 1;
  cw::ByteBufferStreamReader stream(&byte, 1);
  stream.ReadAlignment(0);
  EXPECT_EQ(nullptr, stream.TakeBytes(UINT64_MAX));
  EXPECT_EQ(1, stream.ReadByte());
  stream.ReadAlignment(8);
  EXPECT_EQ(0u, stream.GetRemaining());
  EXPECT_EQ(Lines{kInvalidRead}, errors_.TakeLines());
}

}  // namespace
