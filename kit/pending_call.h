// One call: its callback and, once it has ended, its outcome. The class template in kit/caller.h
// knows the types; CallCore (kit/call_core.h) knows when the call ends.
//
// Threads:   any. The outcome is set by whoever takes the call out of the core's table, and read by
//            whoever runs the callback after that.
// Ownership: the core owns a call until it has ended, then whatever runs its callback.
// Errors:    an exception of the callback, or of the progress function, is an error line.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <thread>
#include <utility>

#include "cw/encodable_value.h"
#include "forge/dispatcher.h"
#include "kit/call_options.h"
#include "kit/clock.h"
#include "kit/failure.h"

namespace tavo::kit::details {

class PendingCall {
 public:
  explicit PendingCall(CallOptions options) : options_(std::move(options)) {}
  virtual ~PendingCall() = default;
  PendingCall(const PendingCall&) = delete;
  PendingCall& operator=(const PendingCall&) = delete;

  // Keep the outcome. Whoever has taken the call out of the core's table calls one of them, once.
  virtual void SetValue(const cw::EncodableValue& value) = 0;
  virtual void SetFailure(Failure failure) = 0;

  // Calls the callback with the outcome, or destroys it uncalled. Only the first call of either
  // function has an effect.
  void Run() noexcept;
  void Discard() noexcept;

  // Calls the progress function, unless the callback was called or destroyed.
  void RunProgress(const cw::EncodableValue& value) const noexcept;

  const CallOptions& GetOptions() const { return options_; }

  // For whoever has taken the call out of the core's table. The executor may keep a task that owns
  // the call, so the call must not own the executor then.
  std::shared_ptr<forge::IDispatcher> TakeExecutor();

 private:
  friend class CallCore;

  // The state of a request that is handed to the client.
  enum class Sending { kNo, kNow, kAbandoned };

  virtual void CallBack() = 0;
  virtual void DropCallback() noexcept = 0;

  CallOptions options_;
  std::atomic<bool> has_ended_{false};  // The callback was called or destroyed, or is being so.
  std::atomic<Sending> sending_{Sending::kNo};

  // Constant once the call is in the core's table.
  uint64_t token_ = 0;

  // What is handed to the client, by whom. Set before; the pointer is valid while sending_ is kNow.
  const cw::EncodableValue* sent_params_ = nullptr;
  std::thread::id sender_;

  // Guarded by the core's mutex.
  Millis deadline_{0};
  bool has_token_on_wire_ = false;
  std::shared_ptr<PendingCall> next_;  // In the chain of what the clock runs next.
};

}  // namespace tavo::kit::details
