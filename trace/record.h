// The record of this process: entries as docs/desk.md shows them, in the ring that TAVO_TRACE_FILE
// and TAVO_TRACE_LIMIT describe.
//
// Threads: any.
// Errors:  the first failure is a line on standard error and the end of the record. The
// conversation
//          goes on.
#pragma once

#include <ctime>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "trace/ring.h"

namespace trace {

class Record {
 public:
  explicit Record(const char* path);

  // Null: nothing is recorded. This is decided at the first call, for the life of the process. The
  // record is never destroyed, since callbacks come until the process ends.
  static Record* Get() noexcept;

  // `members` is the beginning of an object, without its closing brace.
  void AddMessage(const std::string& members, std::string_view direction,
                  std::string_view text) noexcept;
  // `members` has no opening brace either. The cause may be null.
  void AddEvent(const char* event, const std::string& members, const char* cause) noexcept;
  // An intent that this process has invoked, with the URI to open, or serves, without one.
  void AddIntent(std::string_view intent, const char* uri) noexcept;

  // The marks of the ring. A starter that cannot be told counts as none.
  void HoldAsStarter() noexcept;
  bool IsHeldByStarter() noexcept;

 private:
  template <typename Body>
  void Guard(const Body& body) noexcept;
  void AppendTime();
  void AppendMessage(std::string_view text);
  void AppendLine();

  std::mutex mutex_;
  std::optional<Ring> ring_;  // Guarded by mutex_, like all below. Empty: it has failed.
  std::string line_;
  time_t second_ = -1;
  char second_text_[sizeof "2026-11-22T14:52:04"]{};  // Of `second_`.
};

}  // namespace trace
