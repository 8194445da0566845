// The interface of a codec of whole messages: values of the type T to bytes and back.
//
//   const cw::MessageCodec<cw::EncodableValue>& codec = cw::StandardMessageCodec::GetInstance();
//   const forge::Buffer bytes = codec.EncodeMessage(value);
//   if (const auto copy = codec.DecodeMessage(bytes.GetData(), bytes.GetSize())) Use(*copy);
//
// A codec of an application's own format overrides the two operations at the end of the class.
//
// Threads:   a codec should keep no state between calls; StandardMessageCodec may be used from any
//            thread.
// Ownership: the data and the message are borrowed until the call returns.
// Errors:    the implementing class tells which exceptions its operations throw.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "forge/buffer.h"
#include "forge/export.h"

namespace cw {

// A codec of messages of the type T. Virtual operations grow only at the end.
template <typename T>
class FORGE_EXPORT MessageCodec {
 public:
  virtual ~MessageCodec() = default;
  MessageCodec(const MessageCodec&) = delete;
  MessageCodec& operator=(const MessageCodec&) = delete;

  // Decodes the bytes of one message. Null when the bytes hold no message.
  std::unique_ptr<T> DecodeMessage(const uint8_t* data, size_t size) const {
    return DecodeMessageInternal(data, size);
  }

  // Encodes one message.
  forge::Buffer EncodeMessage(const T& message) const { return EncodeMessageInternal(message); }

 protected:
  MessageCodec() = default;

  // The operations that a codec implements, with the contracts of the two above.
  virtual std::unique_ptr<T> DecodeMessageInternal(const uint8_t* data, size_t size) const = 0;
  virtual forge::Buffer EncodeMessageInternal(const T& message) const = 0;
};

}  // namespace cw
