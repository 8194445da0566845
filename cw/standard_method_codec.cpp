#include "cw/standard_method_codec.h"

#include <iostream>
#include <utility>

#include "cw/shared_codec.h"

namespace cw {
namespace {

constexpr uint8_t kSuccessEnvelope = 0;
constexpr uint8_t kErrorEnvelope = 1;

}  // namespace

const StandardMethodCodec& StandardMethodCodec::GetInstance(
    const StandardCodecSerializer* serializer) {
  return details::GetSharedCodec<StandardMethodCodec>(serializer);
}

std::unique_ptr<MethodCall<EncodableValue>> StandardMethodCodec::DecodeMethodCallInternal(
    const uint8_t* data, size_t size) const {
  ByteBufferStreamReader stream(data, size);
  EncodableValue method_name = serializer_->ReadValue(&stream);
  if (!method_name.Is<std::string>()) {
    std::cerr << "Invalid method call; method name is not a string.\n" << std::flush;
    return nullptr;
  }
  return std::make_unique<MethodCall<EncodableValue>>(
      std::move(method_name).Get<std::string>(),
      std::make_unique<EncodableValue>(serializer_->ReadValue(&stream)));
}

forge::Buffer StandardMethodCodec::EncodeMethodCallInternal(
    const MethodCall<EncodableValue>& call) const {
  forge::Buffer buffer;
  ByteBufferStreamWriter stream(&buffer);
  WriteText(call.GetMethodName(), &stream);
  WriteOrNull(call.GetArguments(), &stream);
  return buffer;
}

forge::Buffer StandardMethodCodec::EncodeSuccessEnvelopeInternal(
    const EncodableValue* result) const {
  forge::Buffer buffer;
  ByteBufferStreamWriter stream(&buffer);
  stream.WriteByte(kSuccessEnvelope);
  WriteOrNull(result, &stream);
  return buffer;
}

forge::Buffer StandardMethodCodec::EncodeErrorEnvelopeInternal(
    const std::string& code, const std::string& message, const EncodableValue* details) const {
  forge::Buffer buffer;
  ByteBufferStreamWriter stream(&buffer);
  stream.WriteByte(kErrorEnvelope);
  WriteText(code, &stream);
  if (message.empty()) {
    WriteOrNull(nullptr, &stream);
  } else {
    WriteText(message, &stream);
  }
  WriteOrNull(details, &stream);
  return buffer;
}

bool StandardMethodCodec::DecodeAndProcessResponseEnvelopeInternal(
    const uint8_t* data, size_t size, MethodResult<EncodableValue>* result) const {
  const auto null_if_null = [](const EncodableValue& value) {
    return value.IsNull() ? nullptr : &value;
  };
  ByteBufferStreamReader stream(data, size);
  switch (stream.ReadByte()) {  // 0 for empty input, which counts as a success on purpose.
    case kSuccessEnvelope: {
      const EncodableValue value = serializer_->ReadValue(&stream);
      result->Success(null_if_null(value));
      return true;
    }
    case kErrorEnvelope: {
      const EncodableValue code = serializer_->ReadValue(&stream);
      const EncodableValue message = serializer_->ReadValue(&stream);
      const EncodableValue details = serializer_->ReadValue(&stream);
      result->Error(code.Get<std::string>(),
                    message.IsNull() ? std::string() : message.Get<std::string>(),
                    null_if_null(details));
      return true;
    }
    default:
      return false;
  }
}

void StandardMethodCodec::WriteText(const std::string& text, ByteStreamWriter* stream) const {
  serializer_->WriteValue(EncodableValue(text), stream);
}

void StandardMethodCodec::WriteOrNull(const EncodableValue* value, ByteStreamWriter* stream) const {
  static const auto& none = *new EncodableValue;  // Calls may come while the process exits.
  serializer_->WriteValue(value ? *value : none, stream);
}

}  // namespace cw
