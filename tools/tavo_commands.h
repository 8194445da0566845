// The subcommands of the program `tavo`, one source file each: tools/tavo_NAME.cpp.
//
// Errors: a subcommand that fails throws CommandError. The program prints its text behind the name
//         of the subcommand, and ends with its code. CLI::RuntimeError ends it without a text.
#pragma once

#include <CLI/CLI.hpp>
#include <stdexcept>
#include <string>

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

// Each adds its subcommand, which runs while the application parses the command line.
void AddBind(CLI::App& app);
void AddCall(CLI::App& app);
void AddDecode(CLI::App& app);
void AddDiagram(CLI::App& app);
void AddEmbed(CLI::App& app);
void AddEncode(CLI::App& app);
void AddGenerate(CLI::App& app);  // Of all subcommands that are added before or later.
void AddIntent(CLI::App& app);
void AddListen(CLI::App& app);
void AddMonitor(CLI::App& app);
void AddNotify(CLI::App& app);
void AddOpen(CLI::App& app);
void AddProxy(CLI::App& app);
void AddRun(CLI::App& app);
void AddTasks(CLI::App& app);
void AddTop(CLI::App& app);

}  // namespace tools
