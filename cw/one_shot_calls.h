// Functions that the embedder calls back at most once. The embedder knows each by a number, never
// by an address: a number that was used, withdrawn or never issued finds nothing.
//
// Threads: any. Functions are called and destroyed outside the lock.
#pragma once

#include <cstdint>
#include <functional>
#include <iterator>
#include <map>
#include <mutex>
#include <new>
#include <utility>

#include "forge/object.h"

namespace cw::details {

template <typename... Args>
class OneShotCalls {
 public:
  using Function = std::function<void(Args...)>;

  // The only object of the process. It is never destroyed, since calls may come while the process
  // exits. It is made in place: destructors ask for it, where no allocation may fail.
  static OneShotCalls& GetInstance() {
    alignas(OneShotCalls) static unsigned char memory[sizeof(OneShotCalls)];
    static auto& instance = *new (memory) OneShotCalls;
    return instance;
  }

  // Keeps the function until it is taken, or until its owner (null: none) withdraws it. Returns its
  // number as a pointer for C.
  void* Add(Function function, const void* owner) {
    const std::lock_guard lock(mutex_);
    uintptr_t number = 0;
    // Numbers repeat once the counter has wrapped; 0 is none.
    while (number == 0 || calls_.count(number) > 0) {
      number = forge::details::CounterClient::GenerateId();
    }
    calls_.emplace(number, Call{std::move(function), owner});
    return reinterpret_cast<void*>(number);
  }

  // Moves the function out; empty when there is none.
  Function Take(void* number) {
    const std::lock_guard lock(mutex_);
    const auto found = calls_.find(reinterpret_cast<uintptr_t>(number));
    if (found == calls_.end()) return nullptr;
    Function function = std::move(found->second.function);
    calls_.erase(found);
    return function;
  }

  // Drops the owner's functions. Allocates nothing, because owners call this in their destructors.
  void Withdraw(const void* owner) {
    std::map<uintptr_t, Call> withdrawn;  // Destroyed after the lock was released.
    const std::lock_guard lock(mutex_);
    for (auto call = calls_.begin(); call != calls_.end();) {
      const auto next = std::next(call);
      if (call->second.owner == owner) withdrawn.insert(calls_.extract(call));
      call = next;
    }
  }

 private:
  struct Call {
    Function function;
    const void* owner;
  };

  std::mutex mutex_;
  std::map<uintptr_t, Call> calls_;  // Guarded by mutex_.
};

}  // namespace cw::details
