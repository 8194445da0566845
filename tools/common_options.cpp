#include "tools/common_options.h"

#include "tools/json_argument.h"

namespace tools {
namespace {

std::string CheckNotEmpty(const std::string& text) {
  return text.empty() ? "an empty text is no name" : "";
}

}  // namespace

void AddTask(desk::Command& command, std::string* task) {
  command.AddArgument("TASK", task, "The name of the task").Require().Verify(CheckNotEmpty);
}

void AddMessage(desk::Command& command, std::string* method, std::string* params) {
  command.AddArgument("METHOD", method, "The name of the method").Require().Verify(CheckNotEmpty);
  command.AddArgument("PARAMS", params, kJsonHelp);
}

desk::Option AddTimeout(desk::Command& command, double* seconds, const std::string& help) {
  return command.AddSeconds("--timeout", seconds, help + "; 0: no limit").ShowDefault();
}

}  // namespace tools
