// The record of this process: entries as docs/desk.md shows them, in the ring that TAVO_TRACE_FILE
// and TAVO_TRACE_LIMIT describe.
//
// Threads: any.
// Errors:  the first failure is a line on standard error and the end of the record. The
//          conversation goes on.
#pragma once

#include <cstdint>
#include <ctime>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "trace/ring.h"

namespace trace {

class Record {
 public:
  // Without an error the file is there, or another process has it.
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

  // To be called at the beginning of a conversation. Returns whether it can be recorded: another
  // process may have the files, such as that which has started this one as a task. If it
  // `must_be_told`, that is a line on standard error, once.
  bool Begin(bool must_be_told) noexcept;

  // Cuts off what the file has too much.
  void Close() noexcept;

 private:
  template <typename Body>
  void Guard(const Body& body) noexcept;
  void OpenRing();
  void TellOfUse();
  std::string_view Cut(std::string_view text);
  void AppendTime();
  void AppendMessage(std::string_view text);
  void AppendShortMessage(std::string_view text);
  void AppendLine();

  const std::string path_;
  const uint64_t limit_;

  std::mutex mutex_;
  std::optional<Ring> ring_;  // Guarded by mutex_, like all below. Empty: nothing is recorded.
  bool is_over_ = false;      // The record has failed, or the process ends.
  bool is_told_ = false;      // That another process has the files.
  std::string line_;
  time_t second_ = -1;
  char second_text_[sizeof "2026-11-22T14:52:04"]{};  // Of `second_`.
};

}  // namespace trace
