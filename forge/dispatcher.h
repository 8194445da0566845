// The interface of an executor: it runs tasks on the thread of its choice.
//
// Threads:   Invoke may be called from any thread.
// Ownership: a dispatcher copies the tasks that it keeps.
// Errors:    the implementing class tells what happens to a task that throws and to a task that
//            cannot be run.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "forge/export.h"

namespace forge {

// An executor of tasks. Virtual operations grow only at the end.
class FORGE_EXPORT IDispatcher {
 public:
  virtual ~IDispatcher();

  // Runs the task now or later. The task is borrowed until the call returns. The implementing class
  // defines the meaning of `flags`.
  virtual void Invoke(const std::function<void()>& task, uint32_t flags) = 0;

  // Returns a new dispatcher that drops every task with a warning line.
  static std::shared_ptr<IDispatcher> CreateEmpty();
};

}  // namespace forge
