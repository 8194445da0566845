// The codec of method calls and result envelopes in the standard codec's encoding.
//
//   const auto& codec = cw::StandardMethodCodec::GetInstance();
//   const auto call = codec.DecodeMethodCall(data, size);
//   if (call && call->GetMethodName() == "open") ...
//
// A method call is the name and the arguments as two values. An envelope is the byte 0 and the
// result, or the byte 1 and the code, the message and the details. An argument, a result or details
// that are not given are written as the null value. So is an empty message.
//
// A decoded call always has arguments: the null value when the call came without them. A decoded
// result or details that are the null value are told as a null pointer.
//
// Threads:   any.
// Ownership: codecs are never destroyed. A codec keeps a pointer to its serializer.
// Errors:    those of the serializer (standard_codec_serializer.h). Bytes that do not start with a
//            text are no method call (null, and a line on standard error). Empty input is a success
//            envelope without a value, with lines on standard error for the failed reads. An error
//            envelope whose code is no text, or whose message is neither a text nor null, throws
//            std::bad_variant_access before the result is called: catch it where the peer is not
//            trusted.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "cw/encodable_value.h"
#include "cw/method_codec.h"
#include "cw/standard_message_codec.h"
#include "forge/export.h"

namespace cw {

// The codec over a serializer.
class FORGE_EXPORT StandardMethodCodec final : public MethodCodec<EncodableValue> {
 public:
  // Returns the only codec of that serializer, which the first call makes. The serializer must live
  // as long as the process. Null: the serializer without extensions.
  static const StandardMethodCodec& GetInstance(
      const StandardCodecSerializer* serializer = nullptr);

 protected:
  std::unique_ptr<MethodCall<EncodableValue>> DecodeMethodCallInternal(const uint8_t* data,
                                                                       size_t size) const override;
  forge::Buffer EncodeMethodCallInternal(const MethodCall<EncodableValue>& call) const override;
  forge::Buffer EncodeSuccessEnvelopeInternal(const EncodableValue* result) const override;
  forge::Buffer EncodeErrorEnvelopeInternal(const std::string& code, const std::string& message,
                                            const EncodableValue* details) const override;
  bool DecodeAndProcessResponseEnvelopeInternal(
      const uint8_t* data, size_t size, MethodResult<EncodableValue>* result) const override;

 private:
  friend const StandardMethodCodec& details::GetSharedCodec<StandardMethodCodec>(
      const StandardCodecSerializer* serializer);
  explicit StandardMethodCodec(const StandardCodecSerializer* serializer)
      : serializer_(serializer) {}

  void WriteText(const std::string& text, ByteStreamWriter* stream) const;
  void WriteOrNull(const EncodableValue* value, ByteStreamWriter* stream) const;

  const StandardCodecSerializer* serializer_;  // Never null.
};

}  // namespace cw
