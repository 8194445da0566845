// The identifiers of this process's requests: a prefix that other processes hardly share, and a
// number that no other request of the process has.
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
  static RequestIds& Get();  // The process's; never destroyed.

  uint64_t Draw() { return ++drawn_; }
  Message::ID IdOf(uint64_t number) const;

  // The number of an identifier as IdOf writes it; none of any other.
  std::optional<uint64_t> NumberOf(const Message::ID& id) const;

 private:
  RequestIds();

  const std::string prefix_;
  std::atomic<uint64_t> drawn_{0};
};

// The requests of one client that were answered, so that a second answer can be told from a strange
// one. The last kMaxRemembered are known exactly; an older number counts as answered, though it may
// be another client's.
class AnsweredRequests {
 public:
  static constexpr size_t kMaxRemembered = 65536;

  void Add(uint64_t number) noexcept;
  bool Contains(uint64_t number) const;

 private:
  // Numbers in succession, as they come when only one client is busy.
  struct Run {
    uint64_t first;
    uint64_t last;
  };

  void Forget(uint64_t number);

  std::deque<Run> runs_;  // In the order of the answers.
  size_t remembered_ = 0;
  uint64_t forgotten_ = 0;  // The largest number that is known no more.
};

}  // namespace flrpc::details
