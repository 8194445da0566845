// One direction of a connection of `tavo proxy`: reads lines from a socket, hands them to the
// rules, and writes what comes out to the other socket.
//
// An end of the stream goes on behind the last line. When the target takes nothing any more,
// neither does this. While much waits nothing more is read.
//
// Threads: one at a time.
#pragma once

#include <functional>
#include <string>

#include "tools/proxy_stream.h"

namespace tools {

class ProxyPipe {
 public:
  using Time = ProxyStream::Time;

  static constexpr size_t kMaxLine = size_t{32} << 20;  // As the desk; without the newline.
  static constexpr size_t kMaxWaiting = size_t{16} << 20;

  struct Hooks {
    // Returns the rules that apply to the line.
    std::function<ProxyRules::Set(const std::string& line)> find_rules;
    // A line to which these rules apply has been written whole. This may call Fail, so that no more
    // follows.
    std::function<void(ProxyRules::Set rules)> on_passed;
  };

  // Borrows both sockets, which do not block.
  ProxyPipe(int source, int target, ProxyStream stream, Hooks hooks);

  bool WantsToRead() const { return !has_ended_ && stream_.GetSize() < kMaxWaiting; }
  bool WantsToWrite() const { return !text_.empty(); }
  bool IsFinished() const { return is_finished_; }
  bool HasLongLine() const { return has_long_line_; }  // Longer than kMaxLine.

  // When Write must be called though the target has not become writable.
  std::optional<Time> GetDue() const;

  // Reads what is there, a block at most.
  void Read(Time now);

  // Writes what is due and fits.
  void Write(Time now);

  // Drops what waits: the target takes nothing any more.
  void Fail();

 private:
  void TakeLines(Time now);
  void Put(std::string line, Time now);
  bool NextLine(Time now);
  bool WriteSome();
  void Finish();

  const int source_;
  const int target_;
  ProxyStream stream_;
  const Hooks hooks_;

  std::string received_;       // The begin of a line.
  size_t searched_ = 0;        // So much of it has no newline.
  std::string text_;           // The line that is being written; empty: none.
  size_t written_ = 0;         // So much of it is written,
  ProxyRules::Set rules_ = 0;  // and these rules apply to it.
  bool has_ended_ = false;     // The source gives no more.
  bool is_finished_ = false;
  bool has_long_line_ = false;
};

}  // namespace tools
