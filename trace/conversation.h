// One end of the conversation between a task and its starter, as it stands in the record.
//
// Threads: any.
// Errors:  the constructors throw std::bad_alloc; see record.h for the rest.
#pragma once

#include <atomic>
#include <string>
#include <string_view>

#include "trace/record.h"

namespace trace {

class Conversation {
 public:
  enum class End { kStarter, kTask };

  // `task` is the task's name.
  Conversation(Record& record, End end, std::string_view task);

  void Start() noexcept;
  void Fail(const char* cause) noexcept;
  void Stop() noexcept;  // Told once, however often it is called, and only after a start.
  void ToPeer(const char* text) noexcept;
  void FromPeer(const char* text) noexcept;

 private:
  void Add(const char* direction, const char* text) noexcept;

  Record& record_;
  const bool is_starter_;
  const std::string connection_;
  const std::string messages_;  // What the entries of messages begin with.
  const std::string events_;    // What those of events begin with.
  std::atomic<bool> is_open_{false};
};

}  // namespace trace
