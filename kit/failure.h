// The outcome of a call: a value, or the reason why there is none.
//
//   caller->Call<Size>("measure", params, [](kit::Result<Size> size) {
//     if (size) return Show(size->width, size->height);
//     Report(size.GetFailure().error.message);
//   });
//
// Threads:   plain values, no locking.
// Ownership: a result owns its value.
// Errors:    reading the value of a result that has none, or the failure of one that has a value,
//            throws std::bad_variant_access.
#pragma once

#include <utility>
#include <variant>

#include "flrpc/message.h"

namespace tavo::kit {

// Who has ended a call that has no value. Only kPeer carries the peer's own code; the error of
// every other cause is made here, with the code kInternalError.
enum class Cause {
  kPeer,          // The peer answered with an error.
  kTimeout,       // The peer did not answer in time.
  kCancelled,     // The caller does not want the answer any more.
  kDisconnected,  // The connection was lost, or could not be made.
  kOverloaded,    // Too many calls are in flight, wait, or were abandoned.
  kTooLarge,      // The message exceeds the limits of a frame (cw/admission.h).
  kBadValue,      // The answer is not of the expected type.
};

struct Failure {
  Cause cause;
  flrpc::Message::Error error;
};

// A value or a failure.
template <typename T>
class Result {
 public:
  Result(T value) : body_(std::in_place_index<0>, std::move(value)) {}            // NOLINT
  Result(Failure failure) : body_(std::in_place_index<1>, std::move(failure)) {}  // NOLINT

  explicit operator bool() const { return body_.index() == 0; }

  T& operator*() & { return std::get<0>(body_); }
  const T& operator*() const& { return std::get<0>(body_); }
  T&& operator*() && { return std::get<0>(std::move(body_)); }
  T* operator->() { return &std::get<0>(body_); }
  const T* operator->() const { return &std::get<0>(body_); }

  const Failure& GetFailure() const { return std::get<1>(body_); }

 private:
  std::variant<T, Failure> body_;
};

}  // namespace tavo::kit
