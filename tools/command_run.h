// A command that reads a text and answers with another: a process group, of which nothing is left.
//
// A supervisor (desk/runtime_manager/supervisor.h) starts and ends the group. A process that leaves
// the group (setsid) goes its own way.
//
// Threads: one that runs an event loop.
#pragma once

#include <sys/types.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <QSocketNotifier>
#include <QTimer>

#include "desk/runtime_manager/supervised_process.h"
#include "tools/descriptor.h"

namespace tools {

class CommandRun {
 public:
  struct Outcome {
    std::string output;  // What the command has written to standard output.
    std::string fault;   // Why that is no answer; empty when the command has ended with status 0.
  };
  using Done = std::function<void(const Outcome& outcome)>;

  // Starts the command, without a shell, with the text as its standard input. The event loop calls
  // `done` once, which may destroy this object: when nothing is left of the group, or it could not
  // be started. It is killed after so many seconds (0: never), and when it writes too much.
  CommandRun(const std::vector<std::string>& words, const std::string& input, double seconds,
             Done done);
  // Kills the group if it still runs.
  ~CommandRun();
  CommandRun(const CommandRun&) = delete;
  CommandRun& operator=(const CommandRun&) = delete;

 private:
  void Start(const std::vector<std::string>& words, const std::string& input);
  void Watch(double seconds);
  ssize_t ReadSome();
  void Kill(const std::string& fault);
  void OnNews();
  void Finish(const std::string& fault);

  Done done_;
  Outcome outcome_;
  Descriptor output_;
  std::unique_ptr<desk::SupervisedProcess> process_;  // Null: it was not started.
  std::unique_ptr<QSocketNotifier> output_notifier_;  // Destroyed before what it watches.
  std::unique_ptr<QSocketNotifier> news_notifier_;
  QTimer timer_;  // Of the time limit; at the end, of the call of `done`.
};

}  // namespace tools
