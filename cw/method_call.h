// A call on a method channel: the method's name and its arguments. A handler receives it from its
// channel, and a plug-in makes one only to encode it by itself.
//
//   if (call.GetMethodName() == "open") Open(cw::Get<std::string>(call.GetArguments(), "path"));
//
// Threads:   a plain value, no locking. It does not change after its construction, so several
//            threads may read it.
// Ownership: the call owns its arguments and destroys them with itself.
#pragma once

#include <memory>
#include <string>
#include <utility>

#include "forge/export.h"

namespace cw {

// A call whose arguments are of the type T.
template <typename T>
class FORGE_EXPORT MethodCall {
 public:
  // Null `arguments`: the call has none.
  MethodCall(std::string method_name, std::unique_ptr<T> arguments)
      : method_name_(std::move(method_name)), arguments_(std::move(arguments)) {}
  virtual ~MethodCall() = default;
  MethodCall(const MethodCall&) = delete;
  MethodCall& operator=(const MethodCall&) = delete;

  // The name as the caller gave it; it may be empty.
  const std::string& GetMethodName() const { return method_name_; }

  // The arguments, or null when the call has none. A call that the standard method codec has
  // decoded never has null here: without arguments it holds the null value.
  const T* GetArguments() const { return arguments_.get(); }

 private:
  std::string method_name_;
  std::unique_ptr<T> arguments_;  // May be null.
};

}  // namespace cw
