// tavo listen: the notifications of a task.

#include <algorithm>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "tools/answer_text.h"
#include "tools/common_options.h"
#include "tools/session.h"
#include "tools/task_client.h"
#include "tools/tavo_commands.h"

namespace tools {
namespace {

constexpr char kAbout[] = "Prints the notifications of a task";
constexpr char kFooter[] =
    "Starts the task and prints its notifications of these methods (none: of all), one JSON object "
    "a\n"
    "line. Ends with the task, at the limits, and with SIGINT.\n\n"
    "Example:\n"
    "  tavo listen notes progress --limit 3\n\n"
    "Ends with 0 when --limit is reached, and when the time of --timeout is over and there is no\n"
    "--limit; 2 for a wrong command line; 3 when the task is not started or is lost; 4 when the "
    "time\n"
    "is over before.";

struct Options {
  std::string task;
  std::vector<std::string> methods;
  uint64_t limit = 0;  // 0: none.
  double timeout = 0;  // 0: none.
};

bool IsWanted(const Options& options, const std::string& method) {
  const auto& methods = options.methods;
  return methods.empty() || std::find(methods.begin(), methods.end(), method) != methods.end();
}

// Prints notifications until there are enough.
void PrintAll(Session& session, TaskClient& task, const Options& options) {
  uint64_t count = 0;
  session.RunUntil([&] {
    for (const auto& notification : task.TakeNotifications()) {
      if (!IsWanted(options, notification.method)) continue;
      session.Print(ToLine(notification));
      if (++count == options.limit) return true;
    }
    return false;
  });
}

void Run(const Options& options) {
  RunSession([&](Session& session) {
    bool is_connected = false;
    session.LimitTime(options.timeout, "the time is over");
    try {
      TaskClient task(session, options.task);
      task.Connect();
      is_connected = true;
      PrintAll(session, task, options);
    } catch (const CommandError& error) {
      const bool is_end = error.GetExitCode() == kTimedOut && is_connected && options.limit == 0;
      if (!is_end) throw;
    }
  });
}

}  // namespace

void AddListen(desk::CommandLine& program) {
  const auto options = std::make_shared<Options>();
  desk::Command listen = program.AddCommand("listen", kAbout, kFooter);
  AddTask(listen, &options->task);
  listen.AddArgument("METHOD", &options->methods, "The methods of the notifications");
  listen.AddOption("--limit", &options->limit, "N", "End after so many notifications; 0: no limit");
  AddTimeout(listen, &options->timeout, "How long to listen");
  listen.OnRun([options] { Run(*options); });
}

}  // namespace tools
