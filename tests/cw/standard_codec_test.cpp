// The format byte for byte, through both ways that the serializer has: directly on the library's
// own buffer streams, and through the virtual operations.
#include <gtest/gtest.h>
#include <pthread.h>

#include <cstring>
#include <functional>
#include <limits>
#include <stdexcept>

#include "cw/byte_streams.h"
#include "cw/standard_codec_serializer.h"
#include "cw/standard_message_codec.h"
#include "tests/support/log_capture.h"
#include "tests/support/scale.h"
#include "tests/support/values.h"

namespace {

using cw::EncodableList;
using cw::EncodableMap;
using cw::EncodableValue;
using test::Bytes;
using test::FromHex;
using test::ToHex;

const std::string kInvalidRead = "Invalid read in StandardCodecByteStreamReader";

// Adds nothing, but what it writes and reads goes through the virtual operations.
class VirtualSerializer final : public cw::StandardCodecSerializer {};

// An extension for points.
struct Point {
  uint8_t x, y;
};

class PointSerializer final : public cw::StandardCodecSerializer {
 public:
  static constexpr uint8_t kTag = 128;

  void WriteValue(const EncodableValue& value, cw::ByteStreamWriter* stream) const override {
    const auto* custom = value.GetIf<cw::CustomEncodableValue>();
    if (!custom) return StandardCodecSerializer::WriteValue(value, stream);
    const auto* point = custom->GetIf<Point>();
    stream->WriteByte(kTag);
    WriteSize(300, stream);
    stream->WriteByte(point->x);
    stream->WriteByte(point->y);
  }

 protected:
  EncodableValue ReadValueOfType(uint8_t type, cw::ByteStreamReader* stream) const override {
    if (type == 129) return ReadVector<int32_t>(stream);
    if (type != kTag) return StandardCodecSerializer::ReadValueOfType(type, stream);
    EXPECT_EQ(300u, ReadSize(stream));
    const uint8_t x = stream->ReadByte();
    return cw::CustomEncodableValue(Point{x, stream->ReadByte()});
  }
};

void RunWithStack(size_t size, std::function<void()> body) {
  pthread_attr_t attributes;
  pthread_t thread{};
  pthread_attr_init(&attributes);
  pthread_attr_setstacksize(&attributes, size);
  const auto run = [](void* function) -> void* {
    (*static_cast<std::function<void()>*>(function))();
    return nullptr;
  };
  ASSERT_EQ(0, pthread_create(&thread, &attributes, run, &body));
  pthread_join(thread, nullptr);
  pthread_attr_destroy(&attributes);
}

const VirtualSerializer kVirtual;
const PointSerializer kExtended;
const cw::StandardCodecSerializer& kPlain = cw::StandardCodecSerializer::GetInstance();

// What the value adds to a buffer that holds `offset` bytes.
std::string Encode(const cw::StandardCodecSerializer& serializer, const EncodableValue& value,
                   size_t offset = 0) {
  forge::Buffer buffer(Bytes(offset, 0xEE));
  cw::ByteBufferStreamWriter stream(&buffer);
  serializer.WriteValue(value, &stream);
  return ToHex(test::BytesOf(buffer)).substr(2 * offset);
}

EncodableValue Decode(const cw::StandardCodecSerializer& serializer, const Bytes& bytes,
                      size_t offset = 0) {
  cw::ByteBufferStreamReader stream(bytes.data(), bytes.size());
  for (size_t i = 0; i < offset; ++i) stream.ReadByte();
  return serializer.ReadValue(&stream);
}

class StandardCodecTest : public testing::Test {
 protected:
  // Both ways decode alike and say the same; a copy is made so that sanitizers see the end.
  EncodableValue DecodeBothWays(const Bytes& bytes, std::vector<std::string>* errors = nullptr) {
    EncodableValue value = Decode(kPlain, Bytes(bytes));
    const auto said = errors_.TakeLines();
    const EncodableValue other = Decode(kVirtual, Bytes(bytes));
    EXPECT_EQ(said, errors_.TakeLines()) << ToHex(bytes);
    EXPECT_EQ(value.Serialize(), other.Serialize()) << ToHex(bytes);  // NaN is not equal to NaN.
    if (errors) {
      *errors = said;
    } else {
      EXPECT_EQ(std::vector<std::string>(), said) << ToHex(bytes);
    }
    return value;
  }

  test::ErrorCapture errors_;
};

TEST_F(StandardCodecTest, EveryTagAtEveryAlignment) {
  struct Row {
    EncodableValue value;
    const char* head;
    size_t alignment;  // Of what follows the head.
    const char* body;
  };
  const Row rows[] = {
      {EncodableValue(), "00", 1, ""},
      {true, "01", 1, ""},
      {false, "02", 1, ""},
      {int32_t{1}, "03 01 00 00 00", 1, ""},
      {int32_t{-2}, "03 fe ff ff ff", 1, ""},
      {int64_t{1}, "04 01 00 00 00 00 00 00 00", 1, ""},
      {1.0, "06", 8, "00 00 00 00 00 00 f0 3f"},
      {"", "07 00", 1, ""},
      {std::string_view("a\0\x80", 3), "07 03 61 00 80", 1, ""},
      {std::vector<uint8_t>{}, "08 00", 1, ""},
      {std::vector<uint8_t>{1, 255}, "08 02 01 ff", 1, ""},
      {std::vector<int32_t>{}, "09 00", 1, ""},
      {std::vector<int32_t>{1, -1}, "09 02", 4, "01 00 00 00 ff ff ff ff"},
      {std::vector<int64_t>{}, "0a 00", 1, ""},
      {std::vector<int64_t>{2}, "0a 01", 8, "02 00 00 00 00 00 00 00"},
      {std::vector<double>{}, "0b 00", 1, ""},
      {std::vector<double>{-2.0}, "0b 01", 8, "00 00 00 00 00 00 00 c0"},
      {EncodableList{}, "0c 00", 1, ""},
      {EncodableList{"a", true, EncodableList{}}, "0c 03 07 01 61 01 0c 00", 1, ""},
      {EncodableMap{}, "0d 00", 1, ""},
      {EncodableMap{{"b", false}, {2, "x"}}, "0d 02 03 02 00 00 00 07 01 78 07 01 62 02", 1, ""},
      {std::vector<float>{}, "0e 00", 1, ""},
      {std::vector<float>{1.0f}, "0e 01", 4, "00 00 80 3f"},
  };
  for (const Row& row : rows) {
    for (size_t offset = 0; offset < 9; ++offset) {
      SCOPED_TRACE(std::string(row.head) + " at " + std::to_string(offset));
      Bytes bytes(offset, 0);
      const auto append = [&bytes](const Bytes& more) {
        bytes.insert(bytes.end(), more.begin(), more.end());
      };
      append(FromHex(row.head));
      while (row.body[0] && bytes.size() % row.alignment != 0) bytes.push_back(0);
      append(FromHex(row.body));
      const std::string expected = ToHex(bytes).substr(2 * offset);
      EXPECT_EQ(expected, Encode(kPlain, row.value, offset));
      EXPECT_EQ(expected, Encode(kVirtual, row.value, offset));
      append(Bytes(8, 0));  // The reader aligns in empty typed lists, too.
      EXPECT_EQ(row.value, Decode(kPlain, bytes, offset));
      EXPECT_EQ(row.value, Decode(kVirtual, bytes, offset));
    }
  }
}

TEST_F(StandardCodecTest, SizesTakeOneThreeOrFiveBytes) {
  const std::pair<size_t, const char*> rows[] = {
      {0, "00"},       {1, "01"},       {253, "fd"},       {254, "fefe00"},
      {255, "feff00"}, {256, "fe0001"}, {65535, "feffff"}, {65536, "ff00000100"},
  };
  for (const auto& [size, expected] : rows) {
    SCOPED_TRACE(size);
    EncodableMap map;
    for (size_t i = 0; i < size; ++i) map.emplace_hint(map.end(), static_cast<int32_t>(i), true);
    for (const EncodableValue& value :
         {EncodableValue(std::string(size, 'x')), EncodableValue(std::vector<uint8_t>(size, 1)),
          EncodableValue(std::vector<double>(size, 1)), EncodableValue(EncodableList(size, true)),
          EncodableValue(map)}) {
      const std::string bytes = Encode(kPlain, value);
      EXPECT_EQ(expected, bytes.substr(2, std::strlen(expected)));
      EXPECT_EQ(bytes, Encode(kVirtual, value));
      if (size > 0) {
        EXPECT_EQ(value, DecodeBothWays(FromHex(bytes)));
      }
    }
  }
  EXPECT_EQ(EncodableValue("abcde"), DecodeBothWays(FromHex("07 fe 05 00 61 62 63 64 65")));
  EXPECT_EQ(EncodableValue("ab"), DecodeBothWays(FromHex("07 ff 02 00 00 00 61 62")));
}

TEST_F(StandardCodecTest, ReaderAlignsInEmptyListsThoughTheWriterDoesNot) {
  std::vector<std::string> errors;
  EXPECT_EQ(EncodableValue(std::vector<int32_t>{}), DecodeBothWays(FromHex("09 00"), &errors));
  EXPECT_EQ(std::vector<std::string>{kInvalidRead}, errors);
  // At place 4 there is nothing to skip; at place 3 the byte after the empty list is lost.
  EXPECT_EQ(EncodableValue(EncodableList{EncodableValue(), EncodableValue(), std::vector<float>{}}),
            DecodeBothWays(FromHex("0c 03 00 00 0e 00 aa aa"), &errors));
  EXPECT_EQ(EncodableValue(EncodableList{EncodableValue(), std::vector<float>{}, true, false}),
            DecodeBothWays(FromHex("0c 04 00 0e 00 aa aa aa 01 02"), &errors));
}

TEST_F(StandardCodecTest, MalformedBytesGiveZerosAndALineEach) {
  struct Row {
    const char* bytes;
    EncodableValue value;
    std::vector<std::string> errors;
  };
  const std::string unknown = "Unknown type in StandardCodecSerializer::ReadValueOfType: ";
  const Row rows[] = {
      {"", {}, {kInvalidRead}},
      {"05 02 34 32", "42", {}},
      {"0f", {}, {unknown + "15"}},
      {"ff", {}, {unknown + "255"}},
      {"04 01 02 03", int64_t{0}, {kInvalidRead}},
      {"06 00 00", 0.0, {kInvalidRead}},
      // A failed read does not advance: the next value is read from the same place.
      {"0c 02 03 01 01", EncodableList{0, true}, {kInvalidRead}},
      {"07 03 61 62", std::string(3, '\0'), {kInvalidRead}},
      {"08 02 01", std::vector<uint8_t>(2), {kInvalidRead}},
      {"09 01 00 00 01", std::vector<int32_t>(1), {kInvalidRead}},
      {"0a 02 00 00 00 00 00 00", std::vector<int64_t>(2), {kInvalidRead}},
      {"07", "", {kInvalidRead}},
      {"07 fe 05", std::string(), {kInvalidRead}},
      {"0c 03 01", EncodableList{true, {}, {}}, {kInvalidRead, kInvalidRead}},
      {"0d 02 07 01 61 01", EncodableMap{{"a", true}, {{}, {}}}, {kInvalidRead, kInvalidRead}},
      // The first of equal keys stays, wherever the others come.
      {"0d 03 07 01 62 01 07 01 61 02 07 01 62 02", EncodableMap{{"a", false}, {"b", true}}, {}},
      {"0c 02 0d 03 00 0c 01 01 00 0d 01 01 02 00 0c 01 02 03 05 00 00 00",
       EncodableList{EncodableMap{{{}, EncodableList{true}}}, 5},
       {}},
      {"0d 02 0c 01 01 02 0c 00 01",
       EncodableMap{{EncodableList{true}, false}, {EncodableList(), true}},
       {}},
      {"0d 01 0d 01 0c 01 01 02 0c 01 01",
       EncodableMap{{EncodableMap{{EncodableList{true}, false}}, EncodableList{true}}},
       {}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.bytes);
    std::vector<std::string> errors;
    EXPECT_EQ(row.value, DecodeBothWays(FromHex(row.bytes), &errors));
    EXPECT_EQ(row.errors, errors);
  }
}

TEST_F(StandardCodecTest, TooManyElementsAreALengthErrorOnEveryTarget) {
  for (const char* bytes : {"0c ff 00 00 00 04", "0c ff ff ff ff ff"}) {
    for (const auto* serializer : {&kPlain, static_cast<decltype(&kPlain)>(&kVirtual)}) {
      try {
        Decode(*serializer, FromHex(bytes));
        ADD_FAILURE() << bytes;
      } catch (const std::length_error& error) {
        EXPECT_STREQ("vector::reserve", error.what());
      }
    }
  }
}

// One of everything, with no byte near 0xff: no cut or flipped size is a huge one.
EncodableValue Sample() {
  return EncodableMap{{"bytes", std::vector<uint8_t>{1, 2, 3}},
                      {"doubles", std::vector<double>{0.5, 2.0}},
                      {"floats", std::vector<float>{0.5f}},
                      {"int", 0x01020304},
                      {"list", EncodableList{true, false, EncodableValue(), 2.0, int64_t{5}}},
                      {"longs", std::vector<int64_t>{1, 2}},
                      {"map", EncodableMap{{1, "x"}, {int64_t{1}, "y"}, {"", EncodableMap{}}}},
                      {"numbers", std::vector<int32_t>{1, 2, 3}}};
}

TEST_F(StandardCodecTest, TruncationAnywhereGivesAValueAndSaysSo) {
  const Bytes whole = test::BytesOf(Sample().Serialize());
  EXPECT_EQ(Sample(), DecodeBothWays(whole));
  for (size_t size = 0; size < whole.size(); ++size) {
    std::vector<std::string> errors;
    DecodeBothWays(Bytes(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(size)), &errors);
    EXPECT_FALSE(errors.empty()) << size;
  }
}

// What came out of damaged bytes is a value like any other: encoded again, it stays what it is.
TEST_F(StandardCodecTest, EveryFlippedBitGivesAValueThatSurvivesARoundTrip) {
  const Bytes whole = test::BytesOf(Sample().Serialize());
  size_t misread = 0;
  for (size_t bit = 0; bit < 8 * whole.size(); ++bit) {
    SCOPED_TRACE(bit);
    Bytes damaged = whole;
    damaged[bit / 8] ^= static_cast<uint8_t>(1 << bit % 8);
    std::vector<std::string> errors;
    // Empty typed lists do not survive in the middle (the reader aligns them): one value a message.
    const EncodableValue second = DecodeBothWays(damaged, &errors);
    const Bytes encoded = test::BytesOf(second.Serialize());
    const EncodableValue third = DecodeBothWays(encoded, &errors);
    if (errors.empty()) {
      EXPECT_EQ(ToHex(encoded), ToHex(test::BytesOf(third.Serialize())));
    } else {
      ++misread;
    }
  }
  EXPECT_LT(misread, 10u);
}

// Recursion overflowed a stack of 256 KiB above some 700 levels.
TEST_F(StandardCodecTest, DepthNeedsNoStack) {
  const size_t levels = size_t{25000} * static_cast<size_t>(test::GetScale());
  for (const char* level : {"0c 01", "0d 01 00", "0c 02 00", "0d 01", "0d 02 00 00 00"}) {
    SCOPED_TRACE(level);
    Bytes bytes;
    for (const Bytes one = FromHex(level); bytes.size() < levels * one.size();) {
      bytes.insert(bytes.end(), one.begin(), one.end());
    }
    bytes.resize(bytes.size() + levels + 1);  // The values that maps of nested keys map to.
    RunWithStack(256 << 10, [&bytes] {
      const EncodableValue value = EncodableValue::Deserialize(bytes.data(), bytes.size());
      EncodableValue copy = value;
      EXPECT_TRUE(copy == value && !(copy < value) && !(value < copy));
      const forge::Buffer written = value.Serialize();
      EXPECT_TRUE(EncodableValue::Deserialize(written) == value);
      copy = EncodableList{std::move(copy)};
      EXPECT_TRUE(copy != value && (copy < value || value < copy));
    });
  }
}

TEST_F(StandardCodecTest, ExtensionAppliesInsideListsAndMaps) {
  const EncodableValue point = cw::CustomEncodableValue(Point{3, 4});
  const EncodableValue value = EncodableList{1, EncodableMap{{"p", point}}};
  const std::string bytes = Encode(kExtended, value);
  EXPECT_EQ("0c0203010000000d0107017080fe2c010304", bytes);
  const EncodableValue back = Decode(kExtended, FromHex(bytes));
  const auto& map = back.Get<EncodableList>()[1].Get<EncodableMap>();
  const auto* read = map.at("p").Get<cw::CustomEncodableValue>().GetIf<Point>();
  EXPECT_TRUE(read && read->x == 3 && read->y == 4);
  EXPECT_EQ(EncodableValue(std::vector<int32_t>{7}),
            Decode(kExtended, FromHex("81 01 00 00 07 00 00 00")));
}

TEST_F(StandardCodecTest, WhatIsLargeIsWrittenWholeAndInOrder) {
  EncodableList list;
  for (size_t size = 0; size < 9000; size += 37) {
    list.push_back(std::string(size, static_cast<char>('a' + size % 26)));
    list.push_back(std::vector<int64_t>(size / 5, static_cast<int64_t>(size)));
    list.push_back(0.25 * static_cast<double>(size));
  }
  const std::string bytes = Encode(kPlain, list, 3);
  EXPECT_EQ(Encode(kVirtual, list, 3), bytes);
  const auto& codec = cw::StandardMessageCodec::GetInstance();
  const auto message = codec.EncodeMessage(list);
  std::vector<std::string> errors;
  EXPECT_EQ(EncodableValue(list), *codec.DecodeMessage(message.GetData(), message.GetSize()));
  errors_.TakeLines();
}

// Each value once reallocated all that was written before it.
TEST_F(StandardCodecTest, ManyValuesGoToOneStreamInLinearTime) {
  forge::Buffer plain, other;
  cw::ByteBufferStreamWriter plain_stream(&plain), other_stream(&other);
  size_t reallocations = 0;
  for (int64_t i = 0; i < 100000; ++i) {
    const size_t capacity = plain.GetCapacity();
    kPlain.WriteValue(i, &plain_stream);
    kVirtual.WriteValue(i, &other_stream);
    reallocations += plain.GetCapacity() != capacity ? 1 : 0;
  }
  EXPECT_EQ(other, plain);
  EXPECT_LT(reallocations, 30u);

  // One large block is not moved when something small follows.
  const auto message =
      EncodableValue(EncodableList{std::vector<uint8_t>(1 << 20), "small"}).Serialize();
  EXPECT_LT(message.GetCapacity(), message.GetSize() + (1 << 14));
}

TEST_F(StandardCodecTest, StreamsKeepToTheirEnds) {
  const uint8_t bytes[] = {1, 2, 3};
  cw::ByteBufferStreamReader stream(bytes, sizeof bytes);
  stream.ReadBytes(nullptr, 0);
  stream.ReadAlignment(0);
  uint8_t dest[] = {9, 9, 9, 9};
  stream.ReadBytes(dest, 4);
  EXPECT_EQ(9, dest[0]);
  EXPECT_EQ(std::vector<std::string>{kInvalidRead}, errors_.TakeLines());
  volatile size_t all = std::numeric_limits<size_t>::max();  // What the compiler would refuse.
  stream.ReadBytes(dest, all);
  EXPECT_EQ(nullptr, stream.TakeBytes(std::numeric_limits<uint64_t>::max()));
  EXPECT_EQ(1, stream.ReadByte());
  stream.ReadAlignment(8);
  EXPECT_EQ(0u, stream.GetRemaining());
  stream.ReadBytes(nullptr, 0);  // Checked against the end like any other.
  EXPECT_EQ(0, stream.ReadByte());
  EXPECT_EQ(std::vector<std::string>(4, kInvalidRead), errors_.TakeLines());

  cw::ByteBufferStreamReader nothing(nullptr, 5);
  nothing.ReadBytes(nullptr, 0);
  EXPECT_EQ(0, nothing.ReadByte());
  EXPECT_EQ(std::vector<std::string>{kInvalidRead}, errors_.TakeLines());
}

}  // namespace
