#include "tools/common_options.h"

#include "tools/json_argument.h"

namespace tools {
namespace {

std::string CheckNotEmpty(const std::string& text) {
  return text.empty() ? "an empty text is no name" : "";
}

std::string CheckSeconds(const std::string& text) {
  double seconds = -1;
  const bool is_number = CLI::detail::lexical_cast(text, seconds);
  return is_number && seconds >= 0 ? "" : '"' + text + "\" is no number of seconds";
}

}  // namespace

void AddTask(CLI::App& command, std::string* task) {
  command.add_option("TASK", *task, "The name of the task")->required()->check(CheckNotEmpty);
}

void AddMessage(CLI::App& command, std::string* method, std::string* params) {
  command.add_option("METHOD", *method, "The name of the method")->required()->check(CheckNotEmpty);
  command.add_option("PARAMS", *params, kJsonHelp);
}

CLI::Option* AddTimeout(CLI::App& command, double* seconds, const std::string& help) {
  return command.add_option("--timeout", *seconds, help + "; 0: no limit")
      ->check(CheckSeconds)
      ->type_name("SECONDS")
      ->capture_default_str();
}

}  // namespace tools
