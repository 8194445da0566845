// tavo run: a command in a desk session of its own.

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "tools/processes.h"
#include "tools/tavo_commands.h"

namespace tools {
namespace {

using Clock = std::chrono::steady_clock;

constexpr char kAbout[] =
    "Runs a command in a desk session of its own: its tasks and intents are found by no other\n"
    "session, and it finds those of no other one. When the command has ended, whatever it has "
    "left\n"
    "running is ended, and the session's files are removed. Signals go on to the command.";
constexpr char kFooter[] =
    "Ends with the exit code of the command, with 128 + N when signal N ended it, and with 3 when\n"
    "it could not be started.\n\n"
    "Example:\n"
    "  tavo run --record talk.jsonl -- tavo call digest digest '{\"path\": \"/etc/hostname\"}'";

// A supervisor gives a task five seconds to end.
constexpr auto kGrace = std::chrono::seconds(7);
constexpr auto kAfterKill = std::chrono::seconds(2);  // For processes that cannot be killed.

struct Options {
  std::string record;
  std::vector<std::string> command;
};

// The directory of the session's sockets. Nobody else may enter it.
class SessionDirectory {
 public:
  SessionDirectory() {
    std::error_code error;
    const auto parent = std::filesystem::absolute(std::filesystem::temp_directory_path(error));
    path_ = ((error ? "/tmp" : parent) / "tavo-run-XXXXXX").string();
    if (mkdtemp(path_.data())) return;
    throw CommandError(kNotStarted, path_ + ": " + std::strerror(errno));
  }
  ~SessionDirectory() {
    std::error_code error;
    std::filesystem::remove_all(path_, error);
  }
  SessionDirectory(const SessionDirectory&) = delete;
  SessionDirectory& operator=(const SessionDirectory&) = delete;

  const std::string& GetPath() const { return path_; }

 private:
  std::string path_;
};

// Empties the file, unless it is a pipe. Returns why it cannot keep a record, or nothing.
std::string EmptyRecord(int file) {
  struct stat status {};
  if (file < 0 || fstat(file, &status) != 0) return std::strerror(errno);
  if (status.st_uid != geteuid() || (status.st_mode & 066) != 0) {
    return "other users may open it: give it mode 0600";
  }
  return S_ISREG(status.st_mode) && ftruncate(file, 0) != 0 ? std::strerror(errno) : "";
}

// Makes the file, or empties it, and returns its absolute path: tasks may run elsewhere.
std::string PrepareRecord(const std::string& path) {
  const int file =
      open(path.c_str(), O_WRONLY | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, 0600);
  const std::string fault = EmptyRecord(file);
  if (file >= 0) close(file);
  if (!fault.empty()) throw CommandError(kFailed, path + ": " + fault);
  return std::filesystem::absolute(path).string();
}

// The signals that this process waits for, instead of being ended by them.
class Signals {
 public:
  Signals() {
    signal(SIGCHLD, SIG_DFL);  // Whoever ignores it learns of no child's end.
    sigemptyset(&signals_);
    for (const int number : {SIGCHLD, SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGUSR1, SIGUSR2}) {
      sigaddset(&signals_, number);
    }
    sigprocmask(SIG_BLOCK, &signals_, &before_);
  }
  ~Signals() { sigprocmask(SIG_SETMASK, &before_, nullptr); }
  Signals(const Signals&) = delete;
  Signals& operator=(const Signals&) = delete;

  const sigset_t& GetMaskBefore() const { return before_; }

  // Returns the signal that has arrived; 0 when none comes in time.
  int Wait(std::chrono::milliseconds patience, siginfo_t* info) const {
    const timespec time{static_cast<time_t>(patience.count() / 1000),
                        static_cast<long>(patience.count() % 1000 * 1'000'000)};
    const int number = sigtimedwait(&signals_, info, &time);
    return number > 0 ? number : 0;
  }

 private:
  sigset_t signals_{};
  sigset_t before_{};
};

// In the new process. Returns only when the command cannot be started.
void Execute(const std::vector<std::string>& command, const sigset_t& mask) {
  std::vector<char*> words;
  words.reserve(command.size() + 1);
  for (const std::string& word : command) words.push_back(const_cast<char*>(word.c_str()));
  words.push_back(nullptr);
  sigprocmask(SIG_SETMASK, &mask, nullptr);
  execvp(words[0], words.data());
}

// A pipe that the start of the command closes tells the errno of a failure.
pid_t Spawn(const std::vector<std::string>& command, const sigset_t& mask) {
  int ends[2];
  int error = pipe2(ends, O_CLOEXEC) == 0 ? 0 : errno;
  const pid_t pid = error == 0 ? fork() : -1;
  if (pid == 0) {
    Execute(command, mask);
    const int cause = errno;
    _exit(write(ends[1], &cause, sizeof cause) == sizeof cause ? 127 : 126);
  }
  if (error == 0) {
    if (pid < 0) error = errno;
    close(ends[1]);
    if (pid > 0 && read(ends[0], &error, sizeof error) > 0) waitpid(pid, nullptr, 0);
    close(ends[0]);
  }
  if (error != 0) throw CommandError(kNotStarted, command[0] + ": " + std::strerror(error));
  return pid;
}

// The children that this process had before, which its own predecessor has made. They are let be.
class Strangers {
 public:
  // Reaps all children that have ended, and returns the status of this one if it is among them.
  std::optional<int> Reap(pid_t wanted) {
    std::optional<int> found;
    int status = 0;
    for (pid_t ended = 0; (ended = waitpid(-1, &status, WNOHANG)) > 0;) {
      pids_.erase(ended);
      if (ended == wanted) found = status;
    }
    return found;
  }

  std::set<pid_t> FindOthers() const {
    std::set<pid_t> others = FindChildren();
    for (const pid_t pid : pids_) others.erase(pid);
    return others;
  }

 private:
  std::set<pid_t> pids_ = FindChildren();
};

// Passes signals on until the process has ended, and returns its status. A signal of the terminal
// has reached the process already, but for a hang-up, of which the leader alone is told.
int Await(pid_t pid, const Signals& signals, Strangers* strangers) {
  for (;;) {
    siginfo_t info{};
    const int number = signals.Wait(std::chrono::seconds(1), &info);
    const bool is_news = info.si_code <= 0 || number == SIGHUP;
    if (number != 0 && number != SIGCHLD && is_news) kill(pid, number);
    if (const auto status = strangers->Reap(pid)) return *status;
  }
}

// Asks each process that is left to end, and kills those that do not, or all at the next signal. A
// supervisor ends by itself when its task has ended.
void EndLeftovers(const Signals& signals, Strangers* strangers) {
  std::set<pid_t> asked;
  auto deadline = Clock::now() + kGrace;
  for (;;) {
    strangers->Reap(0);
    const std::set<pid_t> left = strangers->FindOthers();
    if (left.empty()) return;
    const auto now = Clock::now();
    if (now > deadline + kAfterKill) {
      std::cerr << "tavo run: " << left.size() << " processes cannot be ended\n";
      return;
    }
    for (const pid_t child : left) {
      if (now > deadline) {
        kill(child, SIGKILL);
      } else if (asked.insert(child).second) {
        kill(child, SIGTERM);
      }
    }
    siginfo_t info{};
    const int number = signals.Wait(std::chrono::milliseconds(20), &info);
    if (number != 0 && number != SIGCHLD) deadline = std::min(deadline, now);
  }
}

int Run(const Options& options) {
  const SessionDirectory directory;
  if (!options.record.empty()) {
    setenv("TAVO_DESK_RECORD", PrepareRecord(options.record).c_str(), 1);
  }
  setenv("XDG_RUNTIME_DIR", directory.GetPath().c_str(), 1);
  prctl(PR_SET_CHILD_SUBREAPER, 1);
  const Signals signals;
  Strangers strangers;
  const pid_t pid = Spawn(options.command, signals.GetMaskBefore());
  const int status = Await(pid, signals, &strangers);
  EndLeftovers(signals, &strangers);
  return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

}  // namespace

void AddRun(desk::CommandLine& program) {
  const auto options = std::make_shared<Options>();
  desk::Command run = program.AddCommand("run", kAbout, kFooter);
  run.AddOption("--record", &options->record, "FILE",
                "Record the conversations in this file, which is emptied first");
  run.AddArgument("COMMAND", &options->command, "The command and its arguments, after --")
      .Require();
  run.StopAtArgument();
  run.OnRun([options] { std::exit(Run(*options)); });
}

}  // namespace tools
