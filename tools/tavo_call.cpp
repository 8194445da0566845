// tavo call: one request to a task, or a series of them.

#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include "tools/answer_text.h"
#include "tools/common_options.h"
#include "tools/json_argument.h"
#include "tools/latency_table.h"
#include "tools/printable.h"
#include "tools/progress_line.h"
#include "tools/session.h"
#include "tools/task_client.h"
#include "tools/tavo_commands.h"

namespace tools {
namespace {

using Clock = std::chrono::steady_clock;
using flrpc::Message;

constexpr char kAbout[] = "Calls a method of a task and prints the result as JSON";
constexpr char kFooter[] =
    "Starts the task, sends it one request and ends it. An error answer is printed on standard "
    "error.\n\n"
    "Example:\n"
    "  tavo call digest digest '{\"path\": \"/etc/hostname\"}' --timeout 5\n\n"
    "Ends with 0; 1 for an error answer; 2 for a wrong command line; 3 when the task is not "
    "started\n"
    "or is lost; 4 when no answer comes in time.";
constexpr uint32_t kMaxCalls = 10'000'000;
constexpr uint32_t kMaxInFlight = 65'536;  // As many requests as a client remembers exactly.

struct Options {
  std::string task;
  std::string method;
  std::string params;
  double timeout = 25;
  bool notify_out = false;
  std::optional<uint32_t> repeat;
  uint32_t in_flight = 1;
  bool json = false;
};

// The requests of a series, of which one is the shortest.
class Calls {
 public:
  Calls(Session& session, const Options& options, cw::EncodableValue params)
      : session_(session),
        options_(options),
        params_(std::move(params)),
        count_(options.repeat.value_or(1)) {}

  void Run() {
    TaskClient task(session_, options_.task);
    ProgressLine progress([this] { return Describe(); });
    LimitTime();
    task.Connect();
    LimitTime();
    const auto begin = Clock::now();
    session_.RunUntil([&] {
      ShowNotifications(task, progress);
      while (sent_ < count_ && sent_ - table_.CountCalls() < options_.in_flight) Send(task);
      return table_.CountCalls() == count_;
    });
    const auto total = Clock::now() - begin;
    progress.Clear();
    Report(total);
  }

 private:
  void LimitTime() {
    session_.LimitTime(options_.timeout, "the task \"" + options_.task +
                                             "\" has not answered in time: --timeout sets it");
  }

  void Send(TaskClient& task) {
    ++sent_;
    task.SendRequest(options_.method, params_,
                     [this, begin = Clock::now()](const Message::Response& response) {
                       table_.Add(Clock::now() - begin);
                       LimitTime();  // Anew for each answer.
                       Take(response);
                     });
  }

  void Take(const Message::Response& response) {
    if (const auto* result = response.GetResult()) {
      last_result_ = *result;
    } else {
      table_.AddError();
      if (!first_error_) first_error_ = *response.GetError();
    }
  }

  void ShowNotifications(TaskClient& task, ProgressLine& progress) const {
    for (const auto& notification : task.TakeNotifications()) {
      if (!options_.notify_out) continue;
      progress.Clear();
      Session::PrintError(ToLine(notification));
    }
  }

  // Before the task has ended, which may take a while.
  void Report(Clock::duration total) const {
    if (options_.repeat) {
      session_.Print(options_.json ? table_.ToJsonText(total) : table_.ToText(total));
    } else if (!first_error_) {
      session_.Print(desk::ToText(last_result_, desk::SmallInt64::kPlain));
    }
    if (first_error_) throw ErrorAnswer(ToLines(*first_error_));
  }

  std::string Describe() const {
    if (!options_.repeat) return "waiting for " + Printable(options_.task);
    return std::to_string(table_.CountCalls()) + " of " + std::to_string(count_) + " calls";
  }

  Session& session_;
  const Options& options_;
  const cw::EncodableValue params_;
  const uint32_t count_;
  uint32_t sent_ = 0;
  LatencyTable table_;
  std::optional<Message::Error> first_error_;
  cw::EncodableValue last_result_;
};

void Run(const Options& options) {
  const cw::EncodableValue params = ReadValueArgument(options.params);
  RunSession([&](Session& session) { Calls(session, options, params).Run(); });
}

}  // namespace

void AddCall(desk::CommandLine& program) {
  const auto options = std::make_shared<Options>();
  desk::Command call = program.AddCommand("call", kAbout, kFooter);
  AddTask(call, &options->task);
  AddMessage(call, &options->method, &options->params);
  AddTimeout(call, &options->timeout, "How long to wait for the connection and for each answer");
  call.AddFlag("--notify-out", &options->notify_out,
               "Print the notifications of the task on standard error, one JSON a line");
  const desk::Option repeat =
      call.AddOption("--repeat", &options->repeat, "N",
                     "Call so many times, and print how long that took in place of the results")
          .LimitTo(1u, kMaxCalls);
  call.AddOption("--in-flight", &options->in_flight, "N", "So many calls at a time")
      .LimitTo(1u, kMaxInFlight)
      .Need(repeat);
  call.AddFlag("--json", &options->json, "Print the table of --repeat as JSON").Need(repeat);
  call.OnRun([options] { Run(*options); });
}

}  // namespace tools
