// tavo monitor: the messages of a record, a line each, with what a reader wants to know about them.

#include <algorithm>
#include <cmath>
#include <csignal>
#include <iostream>
#include <memory>

#include "tools/conversation.h"
#include "tools/live_source.h"
#include "tools/match.h"
#include "tools/monitor_lines.h"
#include "tools/record_reader.h"
#include "tools/tavo_commands.h"

namespace tools {
namespace {

using Clock = std::chrono::steady_clock;

constexpr char kAbout[] =
    "Prints a line for each message of a record, or of the session from now on. The record is "
    "what\n"
    "TAVO_DESK_RECORD names. A line has the time, the connection, the task and its process, the\n"
    "direction, the method, the identifier and the payload in short. An answer shows the method\n"
    "that it answers and how long that took. At the end the requests without an answer are told.\n"
    "A line is cut to the terminal's width; 80 columns elsewhere.";
constexpr char kFooter[] =
    "EXPR is a list of terms, all of which must hold: task=, method=, direction= (to, from), "
    "kind=\n"
    "(request, response, notification, error, value, intent, start, end, loss), id=, connection=\n"
    "and pid=, each with a pattern of the shell, and the word error. An option that is given\n"
    "several times accepts what one of its expressions accepts.\n"
    "\n"
    "Example:\n"
    "  tavo monitor talk.jsonl --match 'task=notes,method=s*' --match error\n"
    "\n"
    "Ends with 0; 1 when an entry is damaged (the others are printed), the file cannot be read, "
    "or\n"
    "what --wait waits for cannot come any more; 2 for a wrong command line; 4 when --timeout is\n"
    "over.";

struct Options {
  std::string file;
  bool follows = false;
  bool as_json = false;
  double late = 5;
  double timeout = 0;
  size_t limit = 0;
  std::vector<std::string> matches;
  std::vector<std::string> waits;
};

Clock::duration Seconds(double seconds) {
  return std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
}

// ---- Ctrl-C ----

volatile std::sig_atomic_t is_interrupted = 0;

// A handler without SA_RESTART, so that waiting ends.
void HandleInterrupts() {
  struct sigaction action {};
  action.sa_handler = [](int) { is_interrupted = 1; };
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);
}

// ---- The work ----

class Monitor {
 public:
  Monitor(const Options& options, std::unique_ptr<ILineSource> source)
      : options_(options),
        match_(options.waits.empty() ? options.matches : options.waits),
        limit_(options.waits.empty() ? options.limit : 1),
        reader_("tavo monitor", options.file, std::move(source)),
        lines_(options.as_json) {}

  void Run() {
    const auto begin = Clock::now();
    const auto end = options_.timeout > 0 ? begin + Seconds(options_.timeout) : begin;
    while (std::cout && !IsDone() && is_interrupted == 0 && Step(end)) {
    }
    if (!IsDone()) TellAllUnanswered();
    std::cout.flush();
    Judge();
  }

 private:
  bool IsDone() const { return limit_ > 0 && printed_ >= limit_; }

  // Takes an entry, or waits for one. Returns false when there is nothing to wait for any more.
  bool Step(Clock::time_point end) {
    Entry entry;
    auto got = reader_.Next(&entry, {});
    if (got == ILineSource::Got::kNothing) {
      TellLate();
      std::cout.flush();
      got = reader_.Next(&entry, WaitUntil(end));
    }
    if (got == ILineSource::Got::kLine) Take(std::move(entry));
    is_timed_out_ = options_.timeout > 0 && Clock::now() >= end;
    return got != ILineSource::Got::kEnd && !is_timed_out_;
  }

  // A signal that comes just before a wait ends it within this time.
  Clock::time_point WaitUntil(Clock::time_point end) const {
    const auto tick = Clock::now() + std::min(Seconds(0.2), Seconds(options_.late));
    return options_.timeout > 0 ? std::min(tick, end) : tick;
  }

  void Take(Entry entry) {
    conversation_.Take(++number_, Clock::now(), &entry);
    summary_.Add(entry);
    if (match_.Accepts(entry)) {
      std::cout << lines_.Describe(entry);
      ++printed_;
    }
    entry.payload.clear();
    last_ = std::move(entry);
  }

  // Only when the source has nothing more for now: otherwise the answer may just be unread.
  void TellLate() {
    if (!options_.follows) return;
    const auto late = static_cast<int64_t>(options_.late * 1e6);
    for (const Entry& request : conversation_.TakeLate(Clock::now() - Seconds(options_.late))) {
      TellUnanswered(request, std::max(late, GetTimeBetween(request, last_).value_or(0)));
    }
  }

  void TellUnanswered(const Entry& request, std::optional<int64_t> waited) {
    if (match_.Accepts(request)) std::cout << lines_.DescribeUnanswered(request, waited);
  }

  void TellAllUnanswered() {
    if (!options_.waits.empty()) return;
    const auto unanswered = conversation_.GetUnanswered();
    for (const Entry& request : unanswered) {
      TellUnanswered(request, GetTimeBetween(request, last_));
    }
    summary_.unanswered = unanswered.size() + conversation_.GetForgotten();
    if (!options_.as_json) std::cout << summary_.Describe();
  }

  void Judge() const {
    if (!std::cout) throw CommandError(kFailed, "standard output cannot be written");
    if (!options_.waits.empty()) {
      if (IsDone()) return;
      if (is_timed_out_) throw CommandError(kTimedOut, "no entry has matched in time");
      throw CommandError(kFailed, "no entry has matched");
    }
    reader_.ThrowIfDamaged();
  }

  const Options& options_;
  const Match match_;
  const size_t limit_;
  RecordReader reader_;
  MonitorLines lines_;
  Conversation conversation_;
  Summary summary_;
  Entry last_;  // Tells how long the requests without an answer have waited.
  uint64_t number_ = 0;
  size_t printed_ = 0;
  bool is_timed_out_ = false;
};

void Run(Options options) {
  const bool is_live = options.file.empty();
  options.follows = options.follows || is_live || !options.waits.empty();
  HandleInterrupts();
  auto source = is_live ? MakeLiveSource() : OpenRecord(options.file, options.follows);
  if (is_live) options.file = "the session";
  Monitor(options, std::move(source)).Run();
}

// The limits of --late and --timeout.
constexpr double kMinSeconds = 0.001;
constexpr double kMaxSeconds = 1e6;

}  // namespace

void AddMonitor(desk::CommandLine& program) {
  const auto options = std::make_shared<Options>();
  desk::Command monitor = program.AddCommand("monitor", kAbout, kFooter);
  monitor.AddArgument("FILE", &options->file,
                      "The record; - is standard input; without it the session, live");
  monitor.AddFlag("-f,--follow", &options->follows,
                  "Go on at the end of the file, until Ctrl-C; a file that is truncated or "
                  "replaced is read again, and one that does not exist is waited for");
  monitor
      .AddSeconds("--late", &options->late,
                  "With -f: tell a request that has had no answer for so long (5s)")
      .LimitTo(kMinSeconds, kMaxSeconds);
  const desk::Option match =
      Match::AddOption(monitor, "--match", &options->matches, "Print only what matches");
  const desk::Option limit =
      monitor.AddOption("--limit", &options->limit, "N", "End after so many lines")
          .LimitTo(size_t{1}, size_t{1} << 31);
  const desk::Option wait = Match::AddOption(monitor, "--wait", &options->waits,
                                             "Follow the file until an entry matches, and print it")
                                .Exclude(match)
                                .Exclude(limit);
  monitor.AddSeconds("--timeout", &options->timeout, "How long --wait waits")
      .LimitTo(kMinSeconds, kMaxSeconds)
      .Need(wait);
  monitor.AddFlag("--json", &options->as_json, "One JSON object a line, with the whole payload");
  monitor.OnRun([options] { Run(*options); });
}

}  // namespace tools
