// A call on a method channel: the method's name and its arguments.
//
// Threads: a plain value, no locking.
#pragma once

#include <memory>
#include <string>
#include <utility>

#include "forge/export.h"

namespace cw {

template <typename T>
class FORGE_EXPORT MethodCall {
 public:
  MethodCall(std::string method_name, std::unique_ptr<T> arguments)
      : method_name_(std::move(method_name)), arguments_(std::move(arguments)) {}
  virtual ~MethodCall() = default;
  MethodCall(const MethodCall&) = delete;
  MethodCall& operator=(const MethodCall&) = delete;

  const std::string& GetMethodName() const { return method_name_; }

  // Null when the call has none.
  const T* GetArguments() const { return arguments_.get(); }

 private:
  std::string method_name_;
  std::unique_ptr<T> arguments_;
};

}  // namespace cw
