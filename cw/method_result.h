// The receiver of the response to a method call: exactly one of Success, Error and NotImplemented
// is called, once.
//
//   class Printer final : public cw::MethodResult<cw::EncodableValue> {
//     void SuccessInternal(const cw::EncodableValue* result) override { ... }
//     void ErrorInternal(const std::string& code, const std::string& message,
//                        const cw::EncodableValue* details) override { ... }
//     void NotImplementedInternal() override { ... }
//   };
//
// The handler of a method channel receives one and answers with it; Invoke of a method channel
// takes one and calls it with the answer.
//
// Threads:   those of the owner; a method channel uses its results on the embedder's thread.
// Ownership: the arguments are borrowed until the call returns.
// Errors:    the implementing class tells what a second call does. A result of a method channel
//            refuses it with a line on standard error.
#pragma once

#include <string>
#include <type_traits>

#include "forge/export.h"

namespace cw {

// A receiver of values of the type T. Virtual operations grow only at the end.
template <typename T>
class FORGE_EXPORT MethodResult {
 public:
  virtual ~MethodResult() = default;
  MethodResult(const MethodResult&) = delete;
  MethodResult& operator=(const MethodResult&) = delete;

  // The method has succeeded. Null `result`: without a value.
  void Success(const T* result = nullptr) { SuccessInternal(result); }

  void Success(const T& result) { SuccessInternal(&result); }

  // A number is a value. Without this overload the literal 0 would be a null pointer.
  template <typename Number, typename = std::enable_if_t<std::is_arithmetic_v<Number>>>
  void Success(Number result) {
    Success(T(result));
  }

  // The method has failed. `code` is a name that programs recognise, `message` is a text for people
  // (empty: none), and null `details` means that there are none.
  void Error(const std::string& code, const std::string& message = {}, const T* details = nullptr) {
    ErrorInternal(code, message, details);
  }

  void Error(const std::string& code, const std::string& message, const T& details) {
    ErrorInternal(code, message, &details);
  }

  // Details that are a number, by the same rule as above.
  template <typename Number, typename = std::enable_if_t<std::is_arithmetic_v<Number>>>
  void Error(const std::string& code, const std::string& message, Number details) {
    Error(code, message, T(details));
  }

  // The receiver of the call does not know the method.
  void NotImplemented() { NotImplementedInternal(); }

 protected:
  MethodResult() = default;

  // The operations that a receiver implements. Null pointers mean the same as above.
  virtual void SuccessInternal(const T* result) = 0;
  virtual void ErrorInternal(const std::string& code, const std::string& message,
                             const T* details) = 0;
  virtual void NotImplementedInternal() = 0;
};

}  // namespace cw
