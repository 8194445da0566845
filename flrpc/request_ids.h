// The identifiers of this process's requests: a prefix that is unlikely to be that of another
// process, and a number that is unique in this process.
//
// Threads: any for RequestIds; AnsweredRequests is a plain value, no locking.
// Errors:  none of AnsweredRequests; RequestIds propagates allocation failures.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>

#include "flrpc/message.h"

namespace flrpc::details {

class RequestIds {
 public:
  static RequestIds& Get();  // The only object of the process; never destroyed.

  uint64_t Draw() { return ++drawn_; }
  Message::ID IdOf(uint64_t number) const;

  // Returns the number of an identifier that IdOf has made; empty for any other.
  std::optional<uint64_t> NumberOf(const Message::ID& id) const;

 private:
  RequestIds();

  const std::string prefix_;
  std::atomic<uint64_t> drawn_{0};
};

// The requests of one client that were answered. They tell a second answer from an answer to an
// unknown request. The last kMaxRemembered requests are known exactly. Every number up to the
// largest one that was forgotten counts as answered, even if it belongs to another client.
class AnsweredRequests {
 public:
  static constexpr size_t kMaxRemembered = 65536;

  void Add(uint64_t number) noexcept;
  bool Contains(uint64_t number) const;

 private:
  // Consecutive numbers, as they are when only one client is busy.
  struct Run {
    uint64_t first;
    uint64_t last;
  };

  void Forget(uint64_t number);

  std::deque<Run> runs_;  // In the order of the answers.
  size_t remembered_ = 0;
  uint64_t forgotten_ = 0;  // The largest number that was forgotten.
};

}  // namespace flrpc::details
