// Finds the request of each answer, and the requests that have none.
//
// Answers are matched by connection, direction and identifier; in a record without connections the
// task takes the connection's place. Where entries were dropped, the requests of that starter are
// forgotten: their answers may be among what is missing.
//
// Threads: one at a time.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "tools/records.h"

namespace tools {

class Conversation {
 public:
  using Clock = std::chrono::steady_clock;

  static constexpr size_t kMaxWaiting = 10000;  // Requests; beyond it the oldest is forgotten.

  // Takes the next entry. An answer gets the method of its request, and its latency. `number` is a
  // name of the entry for the caller. Returns the number of the answer's request, or kNone.
  static constexpr uint64_t kNone = ~uint64_t{0};
  uint64_t Take(uint64_t number, Clock::time_point seen, Entry* entry);

  // A request without an answer, whose payload is cut if it is large.
  struct Unanswered {
    Entry request;
    Clock::time_point seen;
  };

  // Returns the requests that have waited since `begin` or longer, each of them once.
  std::vector<Unanswered> TakeLate(Clock::time_point begin);

  // Returns the requests that have no answer, in their order.
  std::vector<Unanswered> GetUnanswered() const;
  size_t GetForgotten() const { return forgotten_; }

 private:
  struct Waiting {
    uint64_t number;
    Clock::time_point seen;
    Entry request;
    std::multimap<std::string, uint64_t>::iterator key;
  };

  void ForgetRequestsOf(int64_t starter_pid);
  void AddRequest(uint64_t number, Clock::time_point seen, const Entry& entry);

  std::map<uint64_t, Waiting> waiting_;          // By their order.
  std::multimap<std::string, uint64_t> by_key_;  // Equal keys stay in their order.
  uint64_t next_ = 0;
  uint64_t first_in_time_ = 0;  // TakeLate has returned the requests before this one.
  size_t forgotten_ = 0;
};

}  // namespace tools
