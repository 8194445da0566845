// The codec of messages of one EncodableValue each, in the standard codec's encoding.
//
//   const auto& codec = cw::StandardMessageCodec::GetInstance();
//   const forge::Buffer bytes = codec.EncodeMessage(value);
//   if (const auto message = codec.DecodeMessage(data, size)) Use(*message);
//
// Threads:   any.
// Ownership: codecs are never destroyed. A codec keeps a pointer to its serializer.
// Errors:    those of the serializer (standard_codec_serializer.h). Null and empty data is no
//            message: the result is null. Any other data gives a message, and bytes after the first
//            value are ignored.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "cw/encodable_value.h"
#include "cw/message_codec.h"
#include "cw/standard_codec_serializer.h"
#include "forge/export.h"

namespace cw {

namespace details {
template <typename Codec>
const Codec& GetSharedCodec(const StandardCodecSerializer* serializer);
}

// The codec over a serializer.
class FORGE_EXPORT StandardMessageCodec final : public MessageCodec<EncodableValue> {
 public:
  // Returns the only codec of that serializer, which the first call makes. The serializer must live
  // as long as the process. Null: the serializer without extensions.
  static const StandardMessageCodec& GetInstance(
      const StandardCodecSerializer* serializer = nullptr);

 protected:
  std::unique_ptr<EncodableValue> DecodeMessageInternal(const uint8_t* data,
                                                        size_t size) const override;
  forge::Buffer EncodeMessageInternal(const EncodableValue& message) const override;

 private:
  friend const StandardMessageCodec& details::GetSharedCodec<StandardMessageCodec>(
      const StandardCodecSerializer* serializer);
  explicit StandardMessageCodec(const StandardCodecSerializer* serializer)
      : serializer_(serializer) {}

  const StandardCodecSerializer* serializer_;  // Never null.
};

}  // namespace cw
