#include "desk/embedder/declare_sweep.h"

#include <fcntl.h>
#include <signal.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <iostream>
#include <map>
#include <optional>
#include <stdexcept>
#include <utility>
#include <vector>

#include "desk/embedder/description.h"

namespace desk {
namespace {

using Clock = std::chrono::steady_clock;

constexpr size_t kMaxRuns = 2;  // At a time.
// What a run may take beyond its timeout before it counts as hanging.
constexpr std::chrono::seconds kGrace(5);
constexpr std::chrono::milliseconds kTick(100);
constexpr size_t kMaxErrors = size_t{1} << 16;  // Bytes of standard error that are kept of a run.

[[noreturn]] void Fail(const char* what) {
  throw std::runtime_error(std::string(what) + ": " + std::strerror(errno));
}

// ---- Which sizes ----

std::vector<Declared> ListSizes() {
  std::vector<Declared> sizes;
  for (const char* name : {"context", "application", "view", "texture", "messenger"}) {
    for (uint32_t bytes = 0; bytes <= GetWholeSize(name); bytes += sizeof(void*)) {
      sizes.emplace_back(name, bytes);
    }
  }
  return sizes;
}

// ---- Processes ----

// The standard error of one run. What does not fit into the pipe is lost.
class ErrorPipe {
 public:
  ErrorPipe() {
    if (pipe2(ends_, O_CLOEXEC | O_NONBLOCK) != 0) Fail("a pipe for standard error");
  }
  ErrorPipe(ErrorPipe&& other) noexcept {
    std::swap(ends_[0], other.ends_[0]);
    std::swap(ends_[1], other.ends_[1]);
  }
  ~ErrorPipe() {
    for (const int end : ends_) {
      if (end >= 0) close(end);
    }
  }
  ErrorPipe(const ErrorPipe&) = delete;
  ErrorPipe& operator=(const ErrorPipe&) = delete;
  ErrorPipe& operator=(ErrorPipe&&) = delete;

  int GetInput() const { return ends_[1]; }

  // The last line, without control characters.
  std::string ReadLastLine() const {
    std::string text(kMaxErrors, '\0');
    const ssize_t size = read(ends_[0], text.data(), text.size());
    text.resize(size > 0 ? static_cast<size_t>(size) : 0);
    while (!text.empty() && text.back() == '\n') text.pop_back();
    text.erase(0, text.rfind('\n') + 1);
    const auto is_control = [](char character) {
      const auto code = static_cast<unsigned char>(character);
      return code < 0x20 || code == 0x7f;
    };
    std::replace_if(text.begin(), text.end(), is_control, '?');
    return text;
  }

 private:
  int ends_[2] = {-1, -1};
};

// A run that has ended: the status of waitpid, and the last line on standard error.
struct End {
  int status = 0;
  bool has_hung = false;
  std::string last_line;
};

// The new process. It leaves no core, ends with its parent, and prints nothing.
[[noreturn]] void Become(const DeclareSweep& sweep, const Declared& declared, int errors,
                         const sigset_t& mask) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  const rlimit none{0, 0};
  setrlimit(RLIMIT_CORE, &none);
  sigprocmask(SIG_SETMASK, &mask, nullptr);
  const int null = open("/dev/null", O_RDWR | O_CLOEXEC);
  dup2(null, STDIN_FILENO);
  dup2(null, STDOUT_FILENO);
  dup2(errors, STDERR_FILENO);
  std::exit(sweep.run(declared));
}

// Runs that go on, by their processes.
class Runs {
 public:
  explicit Runs(const DeclareSweep& sweep) : sweep_(sweep) {
    sigset_t child;
    sigemptyset(&child);
    sigaddset(&child, SIGCHLD);
    sigprocmask(SIG_BLOCK, &child, &mask_);
  }
  ~Runs() {
    for (const auto& [pid, run] : runs_) {
      kill(pid, SIGKILL);
      waitpid(pid, nullptr, 0);
    }
    sigprocmask(SIG_SETMASK, &mask_, nullptr);
  }
  Runs(const Runs&) = delete;
  Runs& operator=(const Runs&) = delete;

  size_t GetCount() const { return runs_.size(); }

  void Start(size_t number, const Declared& declared) {
    Run run{number, Clock::now() + std::chrono::seconds(sweep_.timeout) + kGrace, false, {}};
    std::cout.flush();
    const pid_t pid = fork();
    if (pid < 0) Fail("a process");
    if (pid == 0) Become(sweep_, declared, run.errors.GetInput(), mask_);
    runs_.emplace(pid, std::move(run));
  }

  // Waits for the end of one, and returns its number.
  size_t AwaitOne(End* end) {
    for (;;) {
      for (auto run = runs_.begin(); run != runs_.end(); ++run) {
        if (waitpid(run->first, &end->status, WNOHANG) <= 0) continue;
        end->has_hung = run->second.has_hung;
        end->last_line = run->second.errors.ReadLastLine();
        const size_t number = run->second.number;
        runs_.erase(run);
        return number;
      }
      Wait();
    }
  }

 private:
  struct Run {
    size_t number;
    Clock::time_point deadline;
    bool has_hung;
    ErrorPipe errors;
  };

  void Wait() {
    sigset_t child;
    sigemptyset(&child);
    sigaddset(&child, SIGCHLD);
    const timespec tick{0, static_cast<long>(std::chrono::nanoseconds(kTick).count())};
    sigtimedwait(&child, nullptr, &tick);
    for (auto& [pid, run] : runs_) {
      if (Clock::now() < run.deadline || std::exchange(run.has_hung, true)) continue;
      kill(pid, SIGKILL);
    }
  }

  const DeclareSweep& sweep_;
  sigset_t mask_{};
  std::map<pid_t, Run> runs_;
};

// ---- What the ends mean ----

bool IsCode(const End& end, int code) {
  return WIFEXITED(end.status) && WEXITSTATUS(end.status) == code;
}

// Returns what is wrong with the end; nothing when it is as it should be.
std::string FindFault(const End& end) {
  if (end.has_hung) return "it hangs";
  if (!WIFSIGNALED(end.status)) return {};
  const int number = WTERMSIG(end.status);
  return "killed by signal " + std::to_string(number) + " (" + strsignal(number) + ')';
}

void Tell(const char* result, const Declared& declared, const std::string& what, const End& end) {
  std::cout << result << declared.first << '=' << declared.second << ": " << what
            << (end.last_line.empty() ? "" : ": " + end.last_line) << std::endl;
}

class Judge {
 public:
  explicit Judge(const DeclareSweep& sweep) : sweep_(sweep) {}

  // A plug-in whose event loop goes on may lack what it exits by.
  void Add(const Declared& declared, const End& end) {
    const std::string fault = FindFault(end);
    if (!fault.empty()) {
      ++failed_;
      Tell("FAILED  ", declared, fault, end);
    } else if (IsCode(end, sweep_.timed_out)) {
      ++ran_on_;
      Tell("ran on  ", declared, "no exit within " + std::to_string(sweep_.timeout) + " s", {});
    } else {
      ++(IsCode(end, sweep_.refused) ? refused_ : exited_);
    }
  }

  // Returns whether none has failed.
  bool Finish() const {
    std::cout << exited_ + refused_ + ran_on_ + failed_ << " sizes: " << exited_ << " exited, "
              << refused_ << " refused, " << ran_on_ << " ran on, " << failed_ << " failed"
              << std::endl;
    return failed_ == 0;
  }

 private:
  const DeclareSweep& sweep_;
  int exited_ = 0;
  int refused_ = 0;
  int ran_on_ = 0;
  int failed_ = 0;
};

// In the order of the sizes.
bool RunAll(const DeclareSweep& sweep, Runs& runs) {
  const std::vector<Declared> sizes = ListSizes();
  std::vector<std::optional<End>> ends(sizes.size());
  Judge judge(sweep);
  size_t started = 0;
  for (size_t told = 0; told < sizes.size();) {
    while (started < sizes.size() && runs.GetCount() < kMaxRuns) {
      runs.Start(started, sizes[started]);
      ++started;
    }
    End end;
    const size_t number = runs.AwaitOne(&end);
    ends[number] = std::move(end);
    for (; told < sizes.size() && ends[told]; ++told) judge.Add(sizes[told], *ends[told]);
  }
  return judge.Finish();
}

}  // namespace

int RunDeclareSweep(const DeclareSweep& sweep, const std::string& program) {
  Runs runs(sweep);
  End whole;
  runs.Start(0, {});
  runs.AwaitOne(&whole);
  const std::string fault = FindFault(whole);
  if (!fault.empty() || IsCode(whole, sweep.refused)) {
    std::cerr << program << ": with whole tables: " << (fault.empty() ? "it does not run" : fault)
              << (whole.last_line.empty() ? "" : ": " + whole.last_line) << std::endl;
    return fault.empty() ? sweep.refused : 1;
  }
  const bool is_good = RunAll(sweep, runs);
  if (!std::cout) throw std::runtime_error("standard output cannot be written");
  return is_good ? 0 : 1;
}

}  // namespace desk
