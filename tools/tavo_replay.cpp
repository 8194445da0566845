// tavo replay: a recorded conversation again, with one of its ends played by the tool.

#include <unistd.h>

#include <cstdint>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "tools/common_options.h"
#include "tools/desktop_entry.h"
#include "tools/replay_against.h"
#include "tools/replay_differences.h"
#include "tools/replay_record.h"
#include "tools/replay_task.h"
#include "tools/task_server.h"
#include "tools/tavo_commands.h"
#include "tools/terminal.h"
#include "tools/value_path.h"

namespace tools {
namespace {

constexpr char kAbout[] = "Repeats a recorded conversation with a task, or plays its task";
constexpr char kFooter[] =
    "--against starts the task, sends what was sent then, and compares what the task sends. --as\n"
    "answers requests as recorded; it is a task itself, for which --install writes the desktop "
    "entry.\n\n"
    "Examples:\n"
    "  tavo replay talk.jsonl --against notes --fast --ignore 'result.items[*].time'\n"
    "  tavo replay talk.jsonl --as notes --install apps\n"
    "  TAVO_DESK_PATH=apps tavo call notes list\n\n"
    "Ends with 0; 1 when something differs or the record is damaged; 2 for a wrong command line, "
    "and\n"
    "for --as when nobody has started it as a task; 3 when the task is not started or is lost; 4 "
    "when\n"
    "it does not send in time what it has sent then.";

struct Options {
  RecordSelection selection;
  std::string against;
  std::string as;
  std::string directory;
  std::string libraries;  // What a starter says; the tool has its own.
  std::vector<std::string> ignored;
  double timeout = 25;
  bool is_fast = false;
  bool answers_only = false;
  bool has_pauses = false;
};

// A pattern begins with what is compared. Only --against compares answers.
void CheckBeginning(const std::string& text, const ValuePath& pattern, bool is_task) {
  const std::string& name = pattern.front().name;
  if (name == "params" || (!is_task && (name == "result" || name == "error"))) return;
  const std::string words = is_task ? "\"params\"" : "\"params\", \"result\" or \"error\"";
  throw std::runtime_error("the path \"" + text + "\" must begin with " + words);
}

std::vector<ValuePath> ReadPatterns(const Options& options, bool is_task) {
  std::vector<ValuePath> patterns;
  try {
    for (const std::string& text : options.ignored) {
      patterns.push_back(ParsePath(text));
      CheckBeginning(text, patterns.back(), is_task);
    }
  } catch (const std::runtime_error& error) {
    throw CommandError(kWrongUsage, std::string("--ignore: ") + error.what());
  }
  return patterns;
}

void ThrowIfDamaged(const Record& record) {
  if (!record.damage.empty()) throw CommandError(kFailed, record.damage);
}

// ---- --against ----

std::string CountOf(size_t count, const char* what) {
  return std::to_string(count) + ' ' + what + (count == 1 ? "" : "s");
}

std::string Summarize(const ReplayCounts& counts, const Record& record, size_t differences) {
  std::string text = CountOf(counts.sent, "message") + " sent, " +
                     CountOf(counts.answers, "answer") + " and " +
                     CountOf(counts.notifications, "notification") +
                     " compared: " + CountOf(differences, "difference");
  if (record.left_out > 0) text += "; left out: " + CountOf(record.left_out, "frame");
  return text;
}

void RunAgainst(const Options& options, const Record& record, std::vector<ValuePath> ignored) {
  constexpr size_t kColumns = 1000;  // Where no person looks.
  const size_t columns = isatty(STDOUT_FILENO) != 0 ? GetTerminal().columns : kColumns;
  const ReplayPlan plan{options.against, options.timeout, options.is_fast, options.answers_only};
  Differences differences(options.selection.file, std::move(ignored), columns);
  ReplayCounts counts;
  for (const auto& conversation : record.conversations) {
    ReplayAgainst(conversation, plan, differences, counts);
  }
  std::cout << Summarize(counts, record, differences.GetCount()) << std::endl;
  if (!std::cout) throw CommandError(kFailed, "standard output cannot be written");
  ThrowIfDamaged(record);
  if (differences.GetCount() > 0) throw CommandError(kFailed, "");  // It is told.
}

// ---- --as ----

void Install(const Options& options) {
  if (options.selection.file == "-") throw CommandError(kWrongUsage, "a task needs a file to read");
  std::vector<std::string> arguments{"replay", MakeAbsolute(options.selection.file),
                                     "--as=" + options.as};
  const std::string& connection = options.selection.connection;
  if (!connection.empty()) arguments.push_back("--connection=" + connection);
  for (const std::string& pattern : options.ignored) arguments.push_back("--ignore=" + pattern);
  if (options.has_pauses) arguments.emplace_back("--pace");
  std::cout << WriteDesktopEntry(options.directory, options.as, arguments) << std::endl;
}

void Run(Options options) {
  if (options.against.empty() == options.as.empty()) {
    throw CommandError(kWrongUsage, "--against TASK or --as TASK is wanted");
  }
  const bool is_task = options.against.empty();
  std::vector<ValuePath> ignored = ReadPatterns(options, is_task);
  if (is_task && options.directory.empty()) ExpectStarter();
  options.selection.task = is_task ? options.as : options.against;
  const Record record = ReadRecord("tavo replay", options.selection);
  if (!is_task) return RunAgainst(options, record, std::move(ignored));
  if (options.directory.empty()) {
    return ReplayAs(record.conversations, {std::move(ignored), options.has_pauses});
  }
  Install(options);
  ThrowIfDamaged(record);
}

}  // namespace

void AddReplay(desk::CommandLine& program) {
  const auto options = std::make_shared<Options>();
  desk::Command replay = program.AddCommand("replay", kAbout, kFooter);
  replay.AddArgument("FILE", &options->selection.file, "The record").Require();
  const desk::Option against = replay.AddOption("--against", &options->against, "TASK",
                                                "Repeat the conversations with this task");
  desk::Option as = replay.AddOption("--as", &options->as, "TASK", "Play this task");
  as.Exclude(against);
  replay.AddOption("--connection", &options->selection.connection, "NAME",
                   "Only the conversation of this connection; otherwise all of the task in turn");
  replay.AddOption("--ignore", &options->ignored, "PATH",
                   "What may differ, such as result.time or params.items[*].id");
  replay.AddFlag("--fast", &options->is_fast, "With --against: without the recorded pauses")
      .Need(against);
  replay
      .AddFlag("--answers-only", &options->answers_only,
               "With --against: leave the notifications of the task out")
      .Need(against);
  AddTimeout(replay, &options->timeout,
             "With --against: how long to wait for the connection and for each message")
      .Need(against);
  replay.AddFlag("--pace", &options->has_pauses, "With --as: with the recorded pauses").Need(as);
  replay
      .AddOption("--install", &options->directory, "DIR",
                 "With --as: write the desktop entry DIR/TASK.desktop, by which it is found")
      .Need(as);
  replay.AddOption("--libs-path", &options->libraries, "DIR",
                   "What a starter adds; it has no effect");
  replay.OnRun([options] { Run(*options); });
}

}  // namespace tools
