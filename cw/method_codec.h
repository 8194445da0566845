// The interface of a codec of method calls and of the envelopes that carry their results.
//
//   const cw::MethodCodec<cw::EncodableValue>& codec = cw::StandardMethodCodec::GetInstance();
//   const cw::EncodableValue answer(42);
//   const forge::Buffer envelope = codec.EncodeSuccessEnvelope(&answer);
//
// An envelope is a success with an optional value, or an error with a code, a message and optional
// details. "Not implemented" has no envelope: it is the empty answer.
//
// Threads:   a codec should keep no state between calls; StandardMethodCodec may be used from any
//            thread.
// Ownership: every argument is borrowed until the call returns.
// Errors:    the implementing class tells which exceptions its operations throw.
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

// A codec of calls whose values are of the type T. Virtual operations grow only at the end.
template <typename T>
class FORGE_EXPORT MethodCodec {
 public:
  virtual ~MethodCodec() = default;
  MethodCodec(const MethodCodec&) = delete;
  MethodCodec& operator=(const MethodCodec&) = delete;

  // Decodes a method call. Null when the bytes are no method call.
  std::unique_ptr<MethodCall<T>> DecodeMethodCall(const uint8_t* data, size_t size) const {
    return DecodeMethodCallInternal(data, size);
  }

  // Encodes a method call, with or without arguments.
  forge::Buffer EncodeMethodCall(const MethodCall<T>& call) const {
    return EncodeMethodCallInternal(call);
  }

  // Encodes the answer of a method that has succeeded. Null `result`: a success without a value.
  forge::Buffer EncodeSuccessEnvelope(const T* result = nullptr) const {
    return EncodeSuccessEnvelopeInternal(result);
  }

  // Encodes the answer of a method that has failed. An empty `message` and null `details` mean that
  // the error has none.
  forge::Buffer EncodeErrorEnvelope(const std::string& code, const std::string& message = {},
                                    const T* details = nullptr) const {
    return EncodeErrorEnvelopeInternal(code, message, details);
  }

  // Decodes an envelope and calls one operation of `result`, Success or Error, within the call.
  // Returns false, and calls nothing, when the bytes are no envelope. `result` must not be null;
  // its own exceptions leave this call.
  bool DecodeAndProcessResponseEnvelope(const uint8_t* data, size_t size,
                                        MethodResult<T>* result) const {
    return DecodeAndProcessResponseEnvelopeInternal(data, size, result);
  }

 protected:
  MethodCodec() = default;

  // The operations that a codec implements, with the contracts of the operations above.
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
