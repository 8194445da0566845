// tavo notify: one notification to a task.

#include <memory>
#include <string>

#include "tools/common_options.h"
#include "tools/json_argument.h"
#include "tools/session.h"
#include "tools/task_client.h"
#include "tools/tavo_commands.h"

namespace tools {
namespace {

constexpr char kAbout[] = "Sends a task a notification";
constexpr char kFooter[] =
    "Starts the task, and ends it when it has read the notification.\n\n"
    "Example:\n"
    "  tavo notify notes drop '{\"id\": 7}'\n\n"
    "Ends with 0; 1 for a notification that is too large; 2 for a wrong command line; 3 when the "
    "task\n"
    "is not started or is lost; 4 when it does not read the notification in time.";

// A task does nothing at this request once it is connected: the method is an unknown one then. It
// answers after it has handled what was sent before.
constexpr char kFence[] = "flrpc.connected";

struct Options {
  std::string task;
  std::string method;
  std::string params;
  double timeout = 25;
};

void Run(const Options& options) {
  const cw::EncodableValue params = ReadValueArgument(options.params);
  RunSession([&](Session& session) {
    bool is_read = false;
    TaskClient task(session, options.task);
    session.LimitTime(options.timeout,
                      "the task \"" + options.task + "\" has not read the notification in time");
    task.Connect();
    task.SendNotify(options.method, params);
    task.SendRequest(kFence, {}, [&](const auto&) { is_read = true; });
    session.RunUntil([&] {
      task.TakeNotifications();
      return is_read;
    });
  });
}

}  // namespace

void AddNotify(desk::CommandLine& program) {
  const auto options = std::make_shared<Options>();
  desk::Command notify = program.AddCommand("notify", kAbout, kFooter);
  AddTask(notify, &options->task);
  AddMessage(notify, &options->method, &options->params);
  AddTimeout(notify, &options->timeout, "How long the task may take to read the notification");
  notify.OnRun([options] { Run(*options); });
}

}  // namespace tools
