// Whoever waits for the response to a method call: one of the three is called.
//
// Threads: as the implementation. Values are borrowed until the call returns.
#pragma once

#include <string>
#include <type_traits>

#include "forge/export.h"

namespace cw {

// Virtual operations grow only at the end.
template <typename T>
class FORGE_EXPORT MethodResult {
 public:
  virtual ~MethodResult() = default;
  MethodResult(const MethodResult&) = delete;
  MethodResult& operator=(const MethodResult&) = delete;

  // A null `result`: a success without a value.
  void Success(const T* result = nullptr) { SuccessInternal(result); }
  void Success(const T& result) { SuccessInternal(&result); }

  // A number is a value, also the literal 0, which would be a null pointer otherwise.
  template <typename Number, typename = std::enable_if_t<std::is_arithmetic_v<Number>>>
  void Success(Number result) {
    Success(T(result));
  }

  void Error(const std::string& code, const std::string& message = {}, const T* details = nullptr) {
    ErrorInternal(code, message, details);
  }
  void Error(const std::string& code, const std::string& message, const T& details) {
    ErrorInternal(code, message, &details);
  }
  template <typename Number, typename = std::enable_if_t<std::is_arithmetic_v<Number>>>
  void Error(const std::string& code, const std::string& message, Number details) {
    Error(code, message, T(details));
  }

  void NotImplemented() { NotImplementedInternal(); }

 protected:
  MethodResult() = default;

  virtual void SuccessInternal(const T* result) = 0;
  virtual void ErrorInternal(const std::string& code, const std::string& message,
                             const T* details) = 0;
  virtual void NotImplementedInternal() = 0;
};

}  // namespace cw
