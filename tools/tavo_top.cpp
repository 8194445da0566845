// tavo top: what the tasks of the session do.

#include <signal.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "desk/common/value_json.h"
#include "tools/live_source.h"
#include "tools/tavo_commands.h"
#include "tools/traffic.h"
#include "tools/value_printer.h"

namespace tools {
namespace {

using Clock = std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;

constexpr char kAbout[] =
    "Shows what the tasks of the session do: calls and bytes a second, calls without an answer,\n"
    "the times of the answers, and the memory of the task and of its starter. A row comes when "
    "its\n"
    "starter is found, and goes when the task has ended. Ctrl-C ends it.";
constexpr char kFooter[] =
    "Example, for scripts:\n"
    "  tavo top --once --json --interval 2 | jq '.tasks[] | {task, calls_per_second}'\n\n"
    "Ends with 0, also by SIGINT or SIGTERM; 1 when the session cannot be watched or the output\n"
    "cannot be written; 2 for a wrong command line.";

struct Options {
  bool once = false;
  bool as_json = false;
  double interval = 1;
};

struct Row {
  TrafficKey key;
  double calls_per_second = 0;
  double bytes_per_second = 0;
  size_t in_flight = 0;
  std::optional<double> median_ms;  // Nothing: there was no answer.
  std::optional<double> p99_ms;
  std::optional<uint64_t> memory;  // In bytes. Nothing: the process is unknown or has ended.
  std::optional<uint64_t> starter_memory;
};

struct Report {
  double seconds = 0;
  uint64_t dropped = 0;
  std::vector<Row> rows;
};

volatile sig_atomic_t is_interrupted = 0;

// A signal ends the waiting for entries, so that the source is destroyed, which removes its socket.
void EndOnSignals() {
  struct sigaction action {};
  action.sa_handler = [](int) { is_interrupted = 1; };
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) sigaction(number, &action, nullptr);
  signal(SIGPIPE, SIG_IGN);  // A reader that is gone is noticed when the output is flushed.
}

// ---- Figures ----

std::optional<uint64_t> ReadMemory(int pid) {
  uint64_t pages = 0;
  std::ifstream file("/proc/" + std::to_string(pid) + "/statm");
  if (pid <= 0 || !(file >> pages >> pages)) return {};  // The second one is resident.
  return pages * static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
}

std::optional<double> Quantile(std::vector<int64_t>& sorted, double share) {
  if (sorted.empty()) return {};
  const auto rank = std::ceil(share * static_cast<double>(sorted.size()));
  return static_cast<double>(sorted[static_cast<size_t>(std::max(rank, 1.0)) - 1]) / 1000;
}

Row MakeRow(const TrafficKey& key, const TaskTraffic& traffic, double seconds) {
  std::vector<int64_t> latencies = traffic.latencies;
  std::sort(latencies.begin(), latencies.end());
  return {key,
          static_cast<double>(traffic.calls) / seconds,
          static_cast<double>(traffic.bytes) / seconds,
          traffic.in_flight.size(),
          Quantile(latencies, 0.5),
          Quantile(latencies, 0.99),
          ReadMemory(key.pid),
          ReadMemory(key.starter)};
}

// Takes the figures of the interval that ends now. A task has ended when it or its starter is gone.
Report TakeReport(Traffic* traffic, double seconds) {
  Report report{seconds, traffic->GetDropped(), {}};
  std::vector<TrafficKey> ended;
  for (const auto& [key, task] : traffic->GetTasks()) {
    report.rows.push_back(MakeRow(key, task, seconds));
    const Row& row = report.rows.back();
    if (!row.starter_memory || (key.pid > 0 && !row.memory)) ended.push_back(key);
  }
  for (const TrafficKey& key : ended) traffic->Forget(key);
  traffic->Restart();
  const auto is_busier = [](const Row& one, const Row& other) {
    return one.calls_per_second > other.calls_per_second;
  };
  std::stable_sort(report.rows.begin(), report.rows.end(), is_busier);
  return report;
}

// ---- For scripts ----

template <typename T>
desk::Json OrNull(const std::optional<T>& figure) {
  return figure ? desk::Json(*figure) : desk::Json();
}

desk::Json ToJson(const Row& row) {
  return {{"task", row.key.task},
          {"pid", row.key.pid > 0 ? desk::Json(row.key.pid) : desk::Json()},
          {"starter", row.key.starter},
          {"calls_per_second", row.calls_per_second},
          {"bytes_per_second", row.bytes_per_second},
          {"in_flight", row.in_flight},
          {"median_ms", OrNull(row.median_ms)},
          {"p99_ms", OrNull(row.p99_ms)},
          {"memory", OrNull(row.memory)},
          {"starter_memory", OrNull(row.starter_memory)}};
}

void PrintJson(const Report& report) {
  desk::Json tasks = desk::Json::array();
  for (const Row& row : report.rows) tasks.push_back(ToJson(row));
  std::cout << desk::ToText(desk::Json{{"interval", report.seconds},
                                       {"dropped", report.dropped},
                                       {"tasks", std::move(tasks)}})
            << '\n';
}

// ---- For people ----

constexpr char kHeader[] =
    "TASK                 PID  STARTER   CALLS/S    BYTES/S  IN FLIGHT   MEDIAN      P99   MEMORY  "
    "STARTER'S";

std::string Format(const char* format, double number) {
  char text[32];
  std::snprintf(text, sizeof text, format, number);
  return text;
}

std::string ShowBytes(double bytes) {
  constexpr const char* kUnits[] = {"B", "KiB", "MiB", "GiB"};
  size_t unit = 0;
  for (; bytes >= 1024 && unit + 1 < std::size(kUnits); ++unit) bytes /= 1024;
  return Format(unit == 0 || bytes >= 100 ? "%.0f " : "%.1f ", bytes) + kUnits[unit];
}

std::string ShowMemory(const std::optional<uint64_t>& bytes) {
  return bytes ? ShowBytes(static_cast<double>(*bytes)) : "-";
}

std::string ShowTime(const std::optional<double>& milliseconds) {
  if (!milliseconds) return "-";
  return Format(*milliseconds < 10 ? "%.2f ms" : "%.0f ms", *milliseconds);
}

// The name comes from another process: control characters are escaped.
std::string ShowName(const std::string& name) {
  const std::string quoted = Quote(name);
  return quoted.substr(1, quoted.size() - 2);
}

std::string ToLine(const Row& row) {
  char line[256];
  std::snprintf(line, sizeof line, "%-16.16s %7s %8d %9.1f %10s %10zu %8s %8s %8s %10s",
                ShowName(row.key.task).c_str(),
                row.key.pid > 0 ? std::to_string(row.key.pid).c_str() : "-", row.key.starter,
                row.calls_per_second, ShowBytes(row.bytes_per_second).c_str(), row.in_flight,
                ShowTime(row.median_ms).c_str(), ShowTime(row.p99_ms).c_str(),
                ShowMemory(row.memory).c_str(), ShowMemory(row.starter_memory).c_str());
  return line;
}

struct Screen {
  size_t rows = 0;  // 0: the output is no terminal, and nothing is cut.
  size_t columns = 0;
  bool has_colour = false;
};

Screen FindScreen() {
  winsize size{};
  if (!isatty(STDOUT_FILENO) || ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0) return {};
  const char* const no_colour = std::getenv("NO_COLOR");
  return {size.ws_row, size.ws_col, !no_colour || !*no_colour};
}

void PrintTable(const Report& report, bool is_redrawn) {
  const Screen screen = FindScreen();
  const auto cut = [&](const std::string& line) {
    return screen.columns > 0 ? line.substr(0, screen.columns) : line;
  };
  if (is_redrawn && screen.rows > 0) std::cout << "\x1b[H\x1b[2J";
  std::cout << (screen.has_colour ? "\x1b[1m" : "") << cut(kHeader)
            << (screen.has_colour ? "\x1b[0m" : "") << '\n';
  size_t room = screen.rows > 3 ? screen.rows - 3 : report.rows.size();
  for (const Row& row : report.rows) {
    if (room-- == 0) break;
    std::cout << cut(ToLine(row)) << '\n';
  }
  if (report.dropped > 0) std::cout << report.dropped << " entries came too fast to be counted\n";
}

// ---- All of it ----

void ReadUntil(Clock::time_point deadline, ILineSource* source, Traffic* traffic) {
  std::string line;
  while (!is_interrupted && Clock::now() < deadline) {
    if (source->Next(&line, deadline) == ILineSource::Got::kLine) traffic->Take(line);
  }
}

void Run(const Options& options) {
  EndOnSignals();
  const auto source = MakeLiveSource();
  Traffic traffic;
  while (!is_interrupted) {
    const auto begin = Clock::now();
    ReadUntil(begin + std::chrono::duration_cast<Clock::duration>(Seconds(options.interval)),
              source.get(), &traffic);
    if (is_interrupted) return;
    const Report report = TakeReport(&traffic, Seconds(Clock::now() - begin).count());
    options.as_json ? PrintJson(report) : PrintTable(report, !options.once);
    if (!std::cout.flush()) {  // A reader that has enough is no fault.
      throw CommandError(kFailed, errno == EPIPE ? "" : "standard output cannot be written");
    }
    if (options.once) return;
  }
}

}  // namespace

void AddTop(desk::CommandLine& program) {
  const auto options = std::make_shared<Options>();
  desk::Command top = program.AddCommand("top", kAbout, kFooter);
  top.AddFlag("--once", &options->once, "End after one interval");
  top.AddFlag("--json", &options->as_json, "Print a JSON object for each interval");
  top.AddSeconds("--interval", &options->interval, "Its length").LimitTo(0.1, 3600.0).ShowDefault();
  top.OnRun([options] { Run(*options); });
}

}  // namespace tools
