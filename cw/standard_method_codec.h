// Method calls and result envelopes in the standard codec's encoding.
//
// Threads: any.
// Errors:  those of the serializer (standard_codec_serializer.h). Bytes that do not start with a
//          text are no method call (a line on standard error). Empty input is a success envelope
//          without a value. An error envelope whose code is no text, or whose message is neither a
//          text nor null, throws std::bad_variant_access: catch it where the peer is not trusted.
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

class FORGE_EXPORT StandardMethodCodec final : public MethodCodec<EncodableValue> {
 public:
  // The one codec of that serializer, which must live as long as the process; null: the default.
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

  const StandardCodecSerializer* serializer_;
};

}  // namespace cw
