#include "cw/standard_message_codec.h"

#include "cw/shared_codec.h"

namespace cw {

const StandardMessageCodec& StandardMessageCodec::GetInstance(
    const StandardCodecSerializer* serializer) {
  return details::GetSharedCodec<StandardMessageCodec>(serializer);
}

std::unique_ptr<EncodableValue> StandardMessageCodec::DecodeMessageInternal(const uint8_t* data,
                                                                            size_t size) const {
  if (!data || size == 0) return nullptr;
  ByteBufferStreamReader stream(data, size);
  return std::make_unique<EncodableValue>(serializer_->ReadValue(&stream));
}

forge::Buffer StandardMessageCodec::EncodeMessageInternal(const EncodableValue& message) const {
  forge::Buffer buffer;
  ByteBufferStreamWriter stream(&buffer);
  serializer_->WriteValue(message, &stream);
  return buffer;
}

}  // namespace cw
