// tavo check: whether a task does what its starters rely on.

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <QJsonObject>

#include "desk/common/quiet_write.h"
#include "desk/common/transfer.h"
#include "desk/runtime_manager/json_line.h"
#include "tools/check_list.h"
#include "tools/common_options.h"
#include "tools/printable.h"
#include "tools/records.h"
#include "tools/tavo_commands.h"
#include "tools/terminal.h"

namespace tools {
namespace {

using Clock = Wire::Clock;

constexpr char kAbout[] =
    "Checks whether a task does what its starters rely on: a line for each check, with what was "
    "seen";
constexpr char kFooter[] =
    "Each check starts the task anew. What the task writes goes to standard error.\n\n"
    "Example:\n"
    "  tavo check notes --only handshake --only in-flight\n\n"
    "Ends with 0; 1 when a check has failed; 2 for a wrong command line; 3 when the task cannot "
    "be\n"
    "started for the first check.";

constexpr double kHandshakeTime = 1;  // In seconds, as the patience.
constexpr double kPatience = 5;
constexpr double kMaxPatience = 3600;
constexpr int kReaderPatience = 60'000;  // Milliseconds for a reader that reads nothing.

struct Options {
  std::string task;
  std::vector<std::string> only;
  double timeout = 0;  // 0: the defaults above.
  bool json = false;
};

enum class Result { kOk, kFailed, kSkipped };

struct Outcome {
  const char* name;
  Result result;
  std::string seen;
  std::chrono::microseconds time;
};

// Keeps standard output for the report. What the tasks write there goes to standard error.
class Report {
 public:
  explicit Report(bool json)
      : json_(json),
        has_colour_(GetTerminal().has_colour),
        descriptor_(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1)) {
    if (descriptor_ < 0 || dup2(STDERR_FILENO, STDOUT_FILENO) < 0) Fail(errno);
  }
  ~Report() { close(descriptor_); }
  Report(const Report&) = delete;
  Report& operator=(const Report&) = delete;

  void Add(const Outcome& outcome) {
    ++count_;
    if (outcome.result == Result::kFailed) ++failures_;
    if (outcome.result == Result::kSkipped) ++skipped_;
    Write(json_ ? ToJson(outcome) : ToText(outcome));
  }

  // Returns whether no check has failed.
  bool Finish() {
    if (!json_) {
      Write(std::to_string(count_) + (count_ == 1 ? " check, " : " checks, ") +
            std::to_string(failures_) + " failed" +
            (skipped_ == 0 ? "" : ", " + std::to_string(skipped_) + " not run") + '\n');
    }
    return failures_ == 0;
  }

 private:
  static std::string ToJson(const Outcome& outcome) {
    QJsonObject object;
    object[QStringLiteral("check")] = QString::fromUtf8(outcome.name);
    object[QStringLiteral("ok")] = outcome.result == Result::kSkipped
                                       ? QJsonValue()
                                       : QJsonValue(outcome.result == Result::kOk);
    object[QStringLiteral("seen")] = QString::fromStdString(outcome.seen);
    object[QStringLiteral("ms")] = static_cast<double>(outcome.time.count()) / 1000;
    return desk::MakeLine(object).toStdString();
  }

  std::string ToText(const Outcome& outcome) const {
    constexpr const char* kTexts[] = {"ok", "FAILED", "not run"};
    constexpr const char* kColours[] = {"\x1b[32m", "\x1b[31m", "\x1b[33m"};
    constexpr size_t kResultColumns = 8;
    constexpr size_t kNameColumns = 19;
    const auto result = static_cast<size_t>(outcome.result);
    const std::string text = Pad(kTexts[result], kResultColumns);
    const std::string time =
        outcome.result == Result::kSkipped ? "" : " (" + ShowDuration(outcome.time.count()) + ')';
    return (has_colour_ ? kColours[result] + text + "\x1b[0m" : text) +
           Pad(outcome.name, kNameColumns) + Printable(outcome.seen) + time + '\n';
  }

  void Write(const std::string& line) const {
    size_t written = 0;
    const int fault =
        desk::WriteQuietly(descriptor_, line.data(), line.size(), kReaderPatience, &written);
    if (fault != 0) Fail(fault);
  }

  [[noreturn]] static void Fail(int fault) {
    throw CommandError(kFailed, std::string("standard output: ") + std::strerror(fault));
  }

  const bool json_;
  const bool has_colour_;
  const int descriptor_;
  int count_ = 0;
  int failures_ = 0;
  int skipped_ = 0;
};

[[noreturn]] void ThrowUnknown(const std::string& name, const std::vector<Check>& checks) {
  std::string names;
  for (const Check& check : checks) names += std::string(names.empty() ? "" : ", ") + check.name;
  throw CommandError(kWrongUsage, "--only: there is no check \"" + name + "\", but " + names);
}

// The time of --timeout, or the default.
template <class Duration>
Duration GetTime(const Options& options, double otherwise) {
  const double seconds = options.timeout > 0 ? options.timeout : otherwise;
  return std::chrono::duration_cast<Duration>(
      std::chrono::duration<double>(std::min(seconds, kMaxPatience)));
}

// The checks that were asked for.
std::vector<Check> Choose(const Options& options) {
  auto checks = MakeChecks(GetTime<std::chrono::microseconds>(options, kHandshakeTime));
  for (const std::string& name : options.only) {
    const auto is_it = [&](const Check& check) { return check.name == name; };
    if (std::none_of(checks.begin(), checks.end(), is_it)) ThrowUnknown(name, checks);
  }
  const auto is_unwanted = [&](const Check& check) {
    return !options.only.empty() &&
           std::find(options.only.begin(), options.only.end(), check.name) == options.only.end();
  };
  checks.erase(std::remove_if(checks.begin(), checks.end(), is_unwanted), checks.end());
  return checks;
}

// `has_handshake` becomes false when nothing else can be checked. Throws NotStarted for the first
// check: a task that was started before may fail to start, which its author wants to see.
Outcome RunCheck(const Check& check, bool is_first, const Options& options, bool* has_handshake) {
  Outcome outcome{check.name, Result::kFailed, {}, {}};
  const auto start = Clock::now();
  try {
    CheckedProcess process(options.task);
    Wire wire(process, GetTime<Clock::duration>(options, kPatience));
    outcome.seen = check.run(wire);
    outcome.result = Result::kOk;
  } catch (const NoHandshake& finding) {
    outcome.seen = finding.what();
    *has_handshake = false;
  } catch (const NotStarted& error) {
    if (is_first) throw;
    outcome.seen = error.what();
  } catch (const std::exception& fault) {
    outcome.seen = fault.what();
  }
  outcome.time = std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - start);
  return outcome;
}

void Run(const Options& options) try {
  const std::vector<Check> checks = Choose(options);
  Report report(options.json);
  bool has_handshake = true;
  for (const Check& check : checks) {
    report.Add(has_handshake
                   ? RunCheck(check, &check == &checks.front(), options, &has_handshake)
                   : Outcome{check.name, Result::kSkipped, "the handshake has failed", {}});
  }
  if (!report.Finish()) throw CommandError(kFailed, "");
} catch (const NotStarted& error) {
  throw CommandError(kNotStarted, error.what());
}

}  // namespace

void AddCheck(desk::CommandLine& program) {
  const auto options = std::make_shared<Options>();
  desk::Command check = program.AddCommand("check", kAbout, kFooter);
  AddTask(check, &options->task);
  check.AddFlag("--json", &options->json, "Print an object for each check");
  check.AddSeconds(
      "--timeout", &options->timeout,
      "How long the task may take for an answer; 5 seconds unless said, and 1 for the handshake");
  check.AddOption("--only", &options->only, "NAME", "Run this check; repeatable");
  check.OnRun([options] { Run(*options); });
}

}  // namespace tools
