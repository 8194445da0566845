// A codec of whole messages.
//
// Threads: as the implementation; StandardMessageCodec may be used from any.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "forge/buffer.h"
#include "forge/export.h"

namespace cw {

// Virtual operations grow only at the end.
template <typename T>
class FORGE_EXPORT MessageCodec {
 public:
  virtual ~MessageCodec() = default;
  MessageCodec(const MessageCodec&) = delete;
  MessageCodec& operator=(const MessageCodec&) = delete;

  // Null when there is no message in the bytes.
  std::unique_ptr<T> DecodeMessage(const uint8_t* data, size_t size) const {
    return DecodeMessageInternal(data, size);
  }

  forge::Buffer EncodeMessage(const T& message) const { return EncodeMessageInternal(message); }

 protected:
  MessageCodec() = default;

  virtual std::unique_ptr<T> DecodeMessageInternal(const uint8_t* data, size_t size) const = 0;
  virtual forge::Buffer EncodeMessageInternal(const T& message) const = 0;
};

}  // namespace cw
