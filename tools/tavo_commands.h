// The subcommands of the program `tavo`, one source file each: tools/tavo_NAME.cpp.
//
// Errors: a subcommand that fails throws CommandError. The program prints its text behind the name
//         of the subcommand, unless it is empty, and ends with its code.
#pragma once

#include <stdexcept>
#include <string>

#include "desk/common/command_line.h"

namespace tools {

// The exit codes of all subcommands; 0 is success.
constexpr int kFailed = 1;      // An error answer, bad input, or a file that cannot be used.
constexpr int kWrongUsage = 2;  // A wrong command line.
constexpr int kNotStarted = 3;  // A task that was not started, or was lost.
constexpr int kTimedOut = 4;

class CommandError : public std::runtime_error {
 public:
  CommandError(int exit_code, const std::string& text)
      : std::runtime_error(text), exit_code_(exit_code) {}

  int GetExitCode() const { return exit_code_; }

 private:
  int exit_code_;
};

// The error that a task has answered. Its text is printed alone.
class ErrorAnswer : public CommandError {
 public:
  explicit ErrorAnswer(const std::string& text) : CommandError(kFailed, text) {}
};

// Each adds its subcommand, which runs while the program parses the command line.
void AddBind(desk::CommandLine& program);
void AddCall(desk::CommandLine& program);
void AddCheck(desk::CommandLine& program);
void AddDecode(desk::CommandLine& program);
void AddDiagram(desk::CommandLine& program);
void AddEmbed(desk::CommandLine& program);
void AddEncode(desk::CommandLine& program);
void AddGenerate(desk::CommandLine& program);  // Of all subcommands that are added before or later.
void AddIntent(desk::CommandLine& program);
void AddListen(desk::CommandLine& program);
void AddMock(desk::CommandLine& program);
void AddMonitor(desk::CommandLine& program);
void AddNew(desk::CommandLine& program);
void AddNotify(desk::CommandLine& program);
void AddOpen(desk::CommandLine& program);
void AddProxy(desk::CommandLine& program);
void AddReplay(desk::CommandLine& program);
void AddRun(desk::CommandLine& program);
void AddTasks(desk::CommandLine& program);
void AddTop(desk::CommandLine& program);

}  // namespace tools
