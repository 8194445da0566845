// A codec of method calls and of the envelopes that carry their results.
//
// Threads: as the implementation; StandardMethodCodec may be used from any.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "cw/method_call.h"
#include "cw/method_result.h"
#include "forge/buffer.h"
#include "forge/export.h"

namespace cw {

// Virtual operations grow only at the end.
template <typename T>
class FORGE_EXPORT MethodCodec {
 public:
  virtual ~MethodCodec() = default;
  MethodCodec(const MethodCodec&) = delete;
  MethodCodec& operator=(const MethodCodec&) = delete;

  // Null when the bytes are no method call.
  std::unique_ptr<MethodCall<T>> DecodeMethodCall(const uint8_t* data, size_t size) const {
    return DecodeMethodCallInternal(data, size);
  }

  forge::Buffer EncodeMethodCall(const MethodCall<T>& call) const {
    return EncodeMethodCallInternal(call);
  }

  // A null `result` or `details` is none.
  forge::Buffer EncodeSuccessEnvelope(const T* result = nullptr) const {
    return EncodeSuccessEnvelopeInternal(result);
  }
  forge::Buffer EncodeErrorEnvelope(const std::string& code, const std::string& message = {},
                                    const T* details = nullptr) const {
    return EncodeErrorEnvelopeInternal(code, message, details);
  }

  // Tells `result` what the envelope holds; false, and nothing told, when it is no envelope.
  bool DecodeAndProcessResponseEnvelope(const uint8_t* data, size_t size,
                                        MethodResult<T>* result) const {
    return DecodeAndProcessResponseEnvelopeInternal(data, size, result);
  }

 protected:
  MethodCodec() = default;

  virtual std::unique_ptr<MethodCall<T>> DecodeMethodCallInternal(const uint8_t* data,
                                                                  size_t size) const = 0;
  virtual forge::Buffer EncodeMethodCallInternal(const MethodCall<T>& call) const = 0;
  virtual forge::Buffer EncodeSuccessEnvelopeInternal(const T* result) const = 0;
  virtual forge::Buffer EncodeErrorEnvelopeInternal(const std::string& code,
                                                    const std::string& message,
                                                    const T* details) const = 0;
  virtual bool DecodeAndProcessResponseEnvelopeInternal(const uint8_t* data, size_t size,
                                                        MethodResult<T>* result) const = 0;
};

}  // namespace cw
