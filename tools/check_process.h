// The process of a task that is checked. It is started and ended as by the desk's own Task, but
// without an event loop.
//
// Threads: the main thread alone; one object at a time. The process becomes a subreaper, so that
//          what a task leaves behind becomes its child.
// Errors:  NotStarted. At SIGINT and SIGTERM the waits throw std::runtime_error, whose handler is
//          never reached: when the task and what it has left behind are gone, the process ends by
//          that signal.
#pragma once

#include <chrono>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>

#include <QByteArray>

namespace desk {
class SupervisedProcess;
}

namespace tools {

// The task could not be started.
class NotStarted : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Holds SIGINT and SIGTERM back. One that has come takes effect at the end.
class HeldSignals {
 public:
  HeldSignals();
  ~HeldSignals();
  HeldSignals(const HeldSignals&) = delete;
  HeldSignals& operator=(const HeldSignals&) = delete;
};

class CheckedProcess {
 public:
  using Clock = std::chrono::steady_clock;
  static constexpr int kTick = 10;  // Milliseconds between two looks at whatever is waited for.

  // Starts the task, and returns when it runs.
  explicit CheckedProcess(const std::string& task);
  // Kills the task and everything that it has left behind.
  ~CheckedProcess();
  CheckedProcess(const CheckedProcess&) = delete;
  CheckedProcess& operator=(const CheckedProcess&) = delete;

  // The path of the socket at which the task listens.
  const QByteArray& GetSocketPath() const { return socket_path_; }
  Clock::time_point GetStart() const { return start_; }

  // Returns whether the deadline has passed. Throws at SIGINT and SIGTERM. Whoever waits asks this
  // every kTick at least.
  bool IsOver(Clock::time_point deadline) const;

  // Readable when the task may have ended; -1: it has.
  int GetDescriptor() const;

  // Returns whether the task, and everything in its process group, has ended by the deadline.
  bool AwaitEnd(Clock::time_point deadline);

  // After the end: what it was, such as "ended with status 3", and the signal that killed the
  // task; 0: none.
  const std::string& GetEnd() const { return end_; }
  int GetSignal() const { return signal_; }

  // Asks the task to end, as its starter does.
  void Terminate();

  // Does what the death of the starter does. Returns whether the process group and the socket are
  // gone by the deadline.
  bool Abandon(Clock::time_point deadline);

  // Returns the paths of the bound sockets that the task, or a process of its group, has open.
  std::set<std::string> FindSockets() const;

  // After the end: names the processes that the task has left behind; nothing when none is left by
  // the deadline.
  std::string FindLeftovers(Clock::time_point deadline) const;

 private:
  CheckedProcess();

  void ReadNews();
  void AwaitStart();
  bool AwaitGone(Clock::time_point deadline) const;
  std::set<int> ReapChildren() const;

  const HeldSignals signals_;
  bool is_ending_ = false;                            // The destructor waits whatever signals come.
  std::set<int> strangers_;                           // The children that this process had before.
  std::unique_ptr<desk::SupervisedProcess> process_;  // Null: the starter is gone.
  QByteArray socket_path_;
  QByteArray private_directory_;  // Of the socket; may be empty.
  int group_ = 0;                 // The task's process group, and its process.
  Clock::time_point start_;
  std::string failure_;  // Of the start.
  bool is_running_ = false;
  std::string end_;
  int signal_ = 0;
};

}  // namespace tools
