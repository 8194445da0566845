#include <gtest/gtest.h>

#include "cw/standard_message_codec.h"
#include "cw/standard_method_codec.h"
#include "tests/support/log_capture.h"
#include "tests/support/values.h"

namespace {

// Made before the codec is used, so this ends after whatever the codec would let die.
const struct UsesTheCodecAtExit {
  ~UsesTheCodecAtExit() { cw::StandardMethodCodec::GetInstance().EncodeSuccessEnvelope(); }
} kUsesTheCodecAtExit;

using cw::EncodableList;
using cw::EncodableValue;
using test::BytesOf;
using test::FromHex;
using test::ToHex;

const std::string kInvalidRead = "Invalid read in StandardCodecByteStreamReader";

// Writes down what it is told.
class Recorder final : public cw::MethodResult<EncodableValue> {
 public:
  std::string told;

 private:
  static std::string Show(const EncodableValue* value) {
    return value ? ToHex(BytesOf(value->Serialize())) : "none";
  }
  void SuccessInternal(const EncodableValue* result) override { told += "success " + Show(result); }
  void ErrorInternal(const std::string& code, const std::string& message,
                     const EncodableValue* details) override {
    told += "error <" + code + "> <" + message + "> " + Show(details);
  }
  void NotImplementedInternal() override { told += "not implemented"; }
};

class MethodCodecTest : public testing::Test {
 protected:
  std::string EncodeCall(const std::string& name, std::unique_ptr<EncodableValue> arguments) {
    return ToHex(BytesOf(codec_.EncodeMethodCall({name, std::move(arguments)})));
  }

  test::ErrorCapture errors_;
  const cw::StandardMethodCodec& codec_ = cw::StandardMethodCodec::GetInstance();
};

TEST_F(MethodCodecTest, CallIsTheNameAndTheArguments) {
  EXPECT_EQ("07016100", EncodeCall("a", nullptr));
  EXPECT_EQ("07016100", EncodeCall("a", std::make_unique<EncodableValue>()));
  // Alignment counts from the first byte of all.
  EXPECT_EQ(
      "070161"
      "06"
      "00000000"
      "000000000000f03f",
      EncodeCall("a", std::make_unique<EncodableValue>(1.0)));
  const auto bytes = FromHex(
      "070161"
      "0c0101");
  const auto call = codec_.DecodeMethodCall(bytes.data(), bytes.size());
  EXPECT_EQ("a", call->GetMethodName());
  EXPECT_EQ(EncodableValue(EncodableList{true}), *call->GetArguments());
  const auto bare = codec_.DecodeMethodCall(FromHex("07016100").data(), 4);
  EXPECT_TRUE(bare->GetArguments() && bare->GetArguments()->IsNull());
}

TEST_F(MethodCodecTest, WhatDoesNotStartWithATextIsNoCall) {
  const std::string line = "Invalid method call; method name is not a string.";
  EXPECT_EQ(nullptr, codec_.DecodeMethodCall(FromHex("0301000000").data(), 5));
  EXPECT_EQ(std::vector<std::string>{line}, errors_.TakeLines());
  const uint8_t null_tag = 0;
  for (const uint8_t* data : {static_cast<const uint8_t*>(nullptr), &null_tag}) {
    EXPECT_EQ(nullptr, codec_.DecodeMethodCall(data, 0));
    EXPECT_EQ((std::vector<std::string>{kInvalidRead, line}), errors_.TakeLines());
  }
}

TEST_F(MethodCodecTest, EnvelopesAreAByteAndValues) {
  const auto hex = [](const forge::Buffer& buffer) { return ToHex(BytesOf(buffer)); };
  const EncodableValue one = 1, pi = 1.0;
  EXPECT_EQ("0000", hex(codec_.EncodeSuccessEnvelope()));
  EXPECT_EQ("000301000000", hex(codec_.EncodeSuccessEnvelope(&one)));
  EXPECT_EQ(
      "0006"
      "000000000000"
      "000000000000f03f",
      hex(codec_.EncodeSuccessEnvelope(&pi)));
  EXPECT_EQ("010701450000", hex(codec_.EncodeErrorEnvelope("E")));
  EXPECT_EQ(
      "010700"
      "07016d"
      "0301000000",
      hex(codec_.EncodeErrorEnvelope("", "m", &one)));
}

TEST_F(MethodCodecTest, ResponseIsToldToTheResult) {
  struct Row {
    const char* bytes;
    bool is_envelope;
    const char* told;
    size_t invalid_reads;
  };
  const Row rows[] = {
      {"0000", true, "success none", 0},
      {"000301000000", true, "success 0301000000", 0},
      {"01 070145 00 00", true, "error <E> <> none", 0},
      {"01 0700 07016d 01", true, "error <> <m> 01", 0},
      {"02 00", false, "", 0},
      {"", true, "success none", 2},  // Kept so, deliberately.
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.bytes);
    Recorder result;
    const auto bytes = FromHex(row.bytes);
    EXPECT_EQ(row.is_envelope,
              codec_.DecodeAndProcessResponseEnvelope(bytes.data(), bytes.size(), &result));
    EXPECT_EQ(row.told, result.told);
    EXPECT_EQ(std::vector<std::string>(row.invalid_reads, kInvalidRead), errors_.TakeLines());
  }
  for (const char* bytes : {"01 00 00 00", "01 070145 01 00"}) {
    Recorder result;
    const auto data = FromHex(bytes);
    EXPECT_THROW(codec_.DecodeAndProcessResponseEnvelope(data.data(), data.size(), &result),
                 std::bad_variant_access);
    EXPECT_EQ("", result.told);
  }
}

TEST_F(MethodCodecTest, ResultTakesValuesAndPointers) {
  Recorder result;
  const EncodableValue value = true;
  result.Success();
  result.Success(value);
  result.Error("c", "m", value);
  result.Error("c");
  result.NotImplemented();
  EXPECT_EQ("success nonesuccess 01error <c> <m> 01error <c> <> nonenot implemented", result.told);
  result.told.clear();
  result.Success(0);  // No null pointer.
  result.Error("c", "m", 0);
  result.Success(nullptr);
  EXPECT_EQ("success 0300000000error <c> <m> 0300000000success none", result.told);
}

TEST_F(MethodCodecTest, ThereIsOneCodecForEachSerializer) {
  class Other final : public cw::StandardCodecSerializer {};
  static const Other other;
  const auto* plain = &cw::StandardCodecSerializer::GetInstance();
  EXPECT_EQ(&codec_, &cw::StandardMethodCodec::GetInstance(plain));
  EXPECT_NE(&codec_, &cw::StandardMethodCodec::GetInstance(&other));
  EXPECT_EQ(&cw::StandardMessageCodec::GetInstance(),
            &cw::StandardMessageCodec::GetInstance(plain));
  const auto& message_codec = cw::StandardMessageCodec::GetInstance(&other);
  EXPECT_EQ(&message_codec, &cw::StandardMessageCodec::GetInstance(&other));
  EXPECT_EQ("0c0101", ToHex(BytesOf(message_codec.EncodeMessage(EncodableList{true}))));
  EXPECT_EQ(nullptr, message_codec.DecodeMessage(nullptr, 3));
}

}  // namespace
