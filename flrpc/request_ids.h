// The identifiers of this process's requests: a prefix that other processes hardly have, and a
// counter. Remembers which are done with, so that a second answer can be told from a strange one:
// all clients of the process together, since the counters that are done with merge to few intervals
// (each request ends with its answer, with the failure, or with its client).
//
// Threads: any.
#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>

#include "flrpc/message.h"

namespace flrpc::details {

// Numbers, kept as intervals.
class IntervalSet {
 public:
  void Insert(uint64_t number);
  bool Contains(uint64_t number) const;
  size_t CountIntervals() const { return ends_.size(); }

 private:
  std::map<uint64_t, uint64_t> ends_;  // First and last number of each.
};

class RequestIds {
 public:
  static RequestIds& Get();  // The process's; never destroyed.

  Message::ID Draw();

  // The request with this identifier is done with: answered, or given up.
  void Finish(const Message::ID& id);

  // Was it drawn here, and is it done with?
  bool IsFinished(const Message::ID& id) const;

  size_t CountIntervals() const;

 private:
  RequestIds();
  std::optional<uint64_t> CounterOf(const Message::ID& id) const;

  const std::string prefix_;
  std::atomic<uint64_t> drawn_{0};
  mutable std::mutex mutex_;
  IntervalSet finished_;  // Guarded by mutex_.
};

}  // namespace flrpc::details
