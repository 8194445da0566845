// The methods of the requests of one connection, for the answers, which do not name them.
//
// A request is kept after its answer: one that was doubled has two. Beyond kMaxSize the oldest
// requests are forgotten.
//
// Threads: one at a time.
#pragma once

#include <cstddef>
#include <deque>
#include <map>
#include <string>

#include "tools/records.h"

namespace tools {

class RequestMethods {
 public:
  static constexpr size_t kMaxSize = size_t{4} << 20;  // Bytes of memory, about.

  // Keeps the method of a request, and gives an answer that of its request.
  void Take(Entry* entry);

 private:
  using Methods = std::map<std::string, std::string>;

  void Add(const Entry& request);

  Methods methods_;  // By the direction and the identifier of the request.
  std::deque<Methods::const_iterator> by_age_;
  size_t size_ = 0;
};

}  // namespace tools
