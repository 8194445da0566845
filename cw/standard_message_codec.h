// Messages of one EncodableValue each, in the standard codec's encoding.
//
// Threads: any.
// Errors:  those of the serializer (standard_codec_serializer.h). Null or empty data is no
//          message; anything else gives one, and bytes after the first value are ignored.
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

class FORGE_EXPORT StandardMessageCodec final : public MessageCodec<EncodableValue> {
 public:
  // The one codec of that serializer, which must live as long as the process; null: the default.
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

  const StandardCodecSerializer* serializer_;
};

}  // namespace cw
