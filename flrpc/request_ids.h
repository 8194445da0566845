// The identifiers of this process's requests: a prefix that other processes hardly have, and a
// counter. Remembers which are open, so that a second answer can be told from a strange one.
//
// Threads: any.
// Errors:  beginning a request may lack the memory; ending one never does.
#pragma once

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_set>
#include <utility>

#include "flrpc/message.h"

namespace flrpc::details {

class RequestIds {
 public:
  static RequestIds& Get();  // The process's; never destroyed.

  // Was it drawn here, and is it done with?
  bool IsFinished(const Message::ID& id) const;

  size_t CountOpen() const;

 private:
  friend class OpenRequest;

  RequestIds();
  uint64_t Draw();
  void Finish(uint64_t number) noexcept;
  Message::ID IdOf(uint64_t number) const;
  std::optional<uint64_t> CounterOf(const Message::ID& id) const;

  const std::string prefix_;
  mutable std::mutex mutex_;
  uint64_t drawn_ = 0;                 // Guarded by mutex_,
  std::unordered_set<uint64_t> open_;  // as this.
};

// A request with an identifier of its own, which is done with when this ends: answered, given up,
// or never sent.
class OpenRequest {
 public:
  OpenRequest() : number_(RequestIds::Get().Draw()) {}
  OpenRequest(OpenRequest&& other) noexcept : number_(std::exchange(other.number_, 0)) {}
  OpenRequest& operator=(OpenRequest&&) = delete;
  ~OpenRequest() { RequestIds::Get().Finish(number_); }

  Message::ID GetId() const { return RequestIds::Get().IdOf(number_); }

 private:
  uint64_t number_;  // 0: moved to another.
};

}  // namespace flrpc::details
