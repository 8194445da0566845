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

using cw::EncodableValue;
using Lines = std::vector<std::string>;

const std::string kInvalidRead = "Invalid read in StandardCodecByteStreamReader";

std::string ToHex(const forge::Buffer& buffer) { return test::ToHex(test::BytesOf(buffer)); }

const cw::StandardMethodCodec& kCodec = cw::StandardMethodCodec::GetInstance();

// Writes down what it is told, and the envelope of that.
class Recorder final : public cw::MethodResult<EncodableValue> {
 public:
  std::string told;

 private:
  void SuccessInternal(const EncodableValue* result) override {
    told += (result ? "value " : "no value ") + ToHex(kCodec.EncodeSuccessEnvelope(result));
  }
  void ErrorInternal(const std::string& code, const std::string& message,
                     const EncodableValue* details) override {
    told += "<" + code + "> <" + message + (details ? "> details " : "> ") +
            ToHex(kCodec.EncodeErrorEnvelope(code, message, details));
  }
  void NotImplementedInternal() override { told += "not implemented"; }
};

// What the result is told of the bytes.
std::string Process(const std::string& hex) {
  Recorder result;
  const auto bytes = test::FromHex(hex);
  const bool is_envelope =
      kCodec.DecodeAndProcessResponseEnvelope(bytes.data(), bytes.size(), &result);
  return is_envelope ? result.told : "no envelope" + result.told;
}

struct MethodCodecTest : testing::Test {
  test::ErrorCapture errors_;
};

TEST_F(MethodCodecTest, CallIsTheNameAndTheArguments) {
  const std::pair<EncodableValue, const char*> rows[] = {
      {EncodableValue(), "07016100"},
      {1.0, "0701610600000000000000000000f03f"},  // Alignment counts from the first byte of all.
      {cw::EncodableList{true}, "0701610c0101"},
  };
  for (const auto& [arguments, hex] : rows) {
    const auto bytes = test::FromHex(hex);
    const auto call = kCodec.DecodeMethodCall(bytes.data(), bytes.size());
    EXPECT_EQ("a", call->GetMethodName());
    EXPECT_EQ(arguments, *call->GetArguments());
    EXPECT_EQ(hex, ToHex(kCodec.EncodeMethodCall(*call)));
  }
  EXPECT_EQ("07016100", ToHex(kCodec.EncodeMethodCall({"a", nullptr})));
}

TEST_F(MethodCodecTest, WhatDoesNotStartWithATextIsNoCall) {
  const std::string line = "Invalid method call; method name is not a string.";
  const uint8_t number[] = {3, 1, 0, 0, 0};
  EXPECT_EQ(nullptr, kCodec.DecodeMethodCall(number, sizeof number));
  EXPECT_EQ(nullptr, kCodec.DecodeMethodCall(number, 0));
  EXPECT_EQ(nullptr, kCodec.DecodeMethodCall(nullptr, 5));
  EXPECT_EQ((Lines{line, kInvalidRead, line, kInvalidRead, line}), errors_.TakeLines());
}

TEST_F(MethodCodecTest, ResponseIsToldToTheResult) {
  const std::pair<std::string, std::string> rows[] = {
      {"no value ", "0000"},
      {"value ", "000301000000"},
      {"value ", "0006000000000000000000000000f03f"},
      {"<E> <> ", "010701450000"},
      {"<> <m> details ", "01070007016d0301000000"},
  };
  for (const auto& [told, envelope] : rows) EXPECT_EQ(told + envelope, Process(envelope));
  EXPECT_EQ("no envelope", Process("0200"));
  for (const char* bytes : {"01 00 00 00", "01 070145 01 00"}) {
    EXPECT_THROW(Process(bytes), std::bad_variant_access) << bytes;
  }
  EXPECT_EQ("no value 0000", Process(""));  // Kept so, deliberately.
  EXPECT_EQ(Lines(2, kInvalidRead), errors_.TakeLines());
}

TEST_F(MethodCodecTest, ResultTakesZeroForAValue) {
  Recorder result;
  result.Success(0);  // No null pointer.
  result.Error("", "", 0);
  EXPECT_EQ("value 000300000000<> <> details 010700000300000000", result.told);
}

TEST_F(MethodCodecTest, ThereIsOneCodecForEachSerializer) {
  static const struct Other final : cw::StandardCodecSerializer {
  } other;
  const auto* plain = &cw::StandardCodecSerializer::GetInstance();
  EXPECT_EQ(&kCodec, &cw::StandardMethodCodec::GetInstance(plain));
  const auto& codec = cw::StandardMessageCodec::GetInstance(&other);
  EXPECT_NE(&codec, &cw::StandardMessageCodec::GetInstance(plain));
  EXPECT_EQ(&codec, &cw::StandardMessageCodec::GetInstance(&other));
  EXPECT_EQ(nullptr, codec.DecodeMessage(nullptr, 3));
}

}  // namespace
