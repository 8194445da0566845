#include <gtest/gtest.h>

#include "cw/standard_method_codec.h"
#include "tests/support/log_capture.h"
#include "tests/support/values.h"

namespace {

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
    told += details ? "details " : "no details ";
    told += ToHex(kCodec.EncodeErrorEnvelope(code, message, details));
  }
  void NotImplementedInternal() override { told += "not implemented"; }
};

// What the result is told of the bytes.
std::string Process(const std::string& hex) {
  Recorder result;
  const auto bytes = test::FromHex(hex);
  const bool is_envelope =
      kCodec.DecodeAndProcessResponseEnvelope(bytes.data(), bytes.size(), &result);
  return is_envelope ? result.told : "not an envelope" + result.told;
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
  // What does not start with a text is no call.
  const std::string line = "Invalid method call; method name is not a string.";
  const uint8_t number[] = {3, 1, 0, 0, 0};
  EXPECT_EQ(nullptr, kCodec.DecodeMethodCall(number, sizeof number));
  EXPECT_EQ(nullptr, kCodec.DecodeMethodCall(number, 0));
  EXPECT_EQ((Lines{line, kInvalidRead, line}), errors_.TakeLines());
}

TEST_F(MethodCodecTest, ResponseIsToldToTheResult) {
  const std::pair<std::string, std::string> rows[] = {
      {"no value ", "0000"},
      {"value ", "000301000000"},
      {"value ", "0006000000000000000000000000f03f"},
      {"no details ", "010701450000"},
      {"details ", "01070007016d0301000000"},
  };
  for (const auto& [told, envelope] : rows) EXPECT_EQ(told + envelope, Process(envelope));
  EXPECT_EQ("not an envelope", Process("0200"));
  EXPECT_THROW(Process("01 070145 01 00"), std::bad_variant_access);
  EXPECT_EQ("no value 0000", Process(""));  // Kept so, deliberately.
  EXPECT_EQ(Lines(2, kInvalidRead), errors_.TakeLines());
  Recorder zero;
  zero.Success(0);  // No null pointer.
  EXPECT_EQ("value 000300000000", zero.told);
}

TEST_F(MethodCodecTest, ThereIsOneCodecForEachSerializer) {
  static const struct : cw::StandardCodecSerializer {
  } other;
  const auto& plain = cw::StandardCodecSerializer::GetInstance();
  EXPECT_EQ(&kCodec, &cw::StandardMethodCodec::GetInstance(&plain));
  EXPECT_NE(&kCodec, &cw::StandardMethodCodec::GetInstance(&other));
}

}  // namespace
