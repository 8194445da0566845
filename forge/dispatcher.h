// An executor: where an object's callbacks run.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "forge/export.h"

namespace forge {

// Threads: Invoke may be called from any.
// Virtual operations grow only at the end.
class FORGE_EXPORT IDispatcher {
 public:
  virtual ~IDispatcher();

  // Takes the task over (it copies what it keeps); `flags` is the caller's own word.
  virtual void Invoke(const std::function<void()>& task, uint32_t flags) = 0;

  // A dispatcher that drops every task with a warning; a new one at each call.
  static std::shared_ptr<IDispatcher> CreateEmpty();
};

}  // namespace forge
