// A connection to a task that is checked: lines, whatever they are, to the task, and messages back.
//
// Threads: the main thread alone.
// Errors:  Finding.
#pragma once

#include <chrono>
#include <optional>
#include <stdexcept>
#include <string>

#include "flrpc/message.h"
#include "tools/check_process.h"

namespace tools {

// What was seen of a task that fails its check.
class Finding : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The task has ended, or has closed the connection.
class ConnectionLost : public Finding {
 public:
  using Finding::Finding;
};

class Wire {
 public:
  using Clock = CheckedProcess::Clock;

  // `patience` is the time for each wait. There is no connection yet.
  Wire(CheckedProcess& process, Clock::duration patience);
  ~Wire();
  Wire(const Wire&) = delete;
  Wire& operator=(const Wire&) = delete;

  CheckedProcess& GetProcess() const { return process_; }
  Clock::time_point GetDeadline() const { return Clock::now() + patience_; }
  std::string ShowPatience() const;

  // Makes a connection in place of the former one.
  void Connect();
  // Closes the connection, with whatever has not been read.
  void Close();

  // From now on each write of the task fails, as after a close, but what it is sent arrives.
  void RefuseAnswers();

  // Queues the bytes. They leave while Receive waits.
  void Send(const std::string& bytes) { outgoing_ += bytes; }
  // Writes what is queued, and reads nothing meanwhile.
  void Flush();

  // Returns the next message of the task; nothing at the deadline. Lines with something else than
  // messages are the task's own.
  std::optional<flrpc::Message> Receive(Clock::time_point deadline);
  // The same, but throws `missing`, and how long it was waited for, at the deadline.
  flrpc::Message Receive(Clock::time_point deadline, const std::string& missing);

 private:
  bool TakeLine(std::string* line);
  bool Wait(Clock::time_point deadline, short events);
  [[noreturn]] void ThrowMissing(const std::string& missing) const;
  void Read();
  void Write();
  [[noreturn]] void ThrowLost();

  CheckedProcess& process_;
  const Clock::duration patience_;
  int descriptor_ = -1;
  std::string outgoing_;
  std::string incoming_;
  size_t line_start_ = 0;  // In incoming_; what comes before was taken.
  size_t searched_ = 0;    // In incoming_; there is no end of a line between.
};

// The line with a text of the library, and that of a message.
std::string MakeFrame(const std::string& base64);
std::string MakeFrame(const flrpc::Message& message);

}  // namespace tools
