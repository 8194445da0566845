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

// From one run to this process. What does not fit into the pipe is lost.
class Pipe {
 public:
  Pipe() {
    if (pipe2(ends_, O_CLOEXEC | O_NONBLOCK) != 0) Fail("a pipe");
  }
  Pipe(Pipe&& other) noexcept {
    std::swap(ends_[0], other.ends_[0]);
    std::swap(ends_[1], other.ends_[1]);
  }
  ~Pipe() {
    for (const int end : ends_) {
      if (end >= 0) close(end);
    }
  }
  Pipe(const Pipe&) = delete;
  Pipe& operator=(const Pipe&) = delete;
  Pipe& operator=(Pipe&&) = delete;

  int GetInput() const { return ends_[1]; }

  std::string Read() const {
    std::string text(kMaxErrors, '\0');
    const ssize_t size = read(ends_[0], text.data(), text.size());
    text.resize(size > 0 ? static_cast<size_t>(size) : 0);
    return text;
  }

 private:
  int ends_[2] = {-1, -1};
};

// Without control characters.
std::string LastLine(std::string text) {
  while (!text.empty() && text.back() == '\n') text.pop_back();
  text.erase(0, text.rfind('\n') + 1);
  const auto is_control = [](char character) {
    const auto code = static_cast<unsigned char>(character);
    return code < 0x20 || code == 0x7f;
  };
  std::replace_if(text.begin(), text.end(), is_control, '?');
  return text;
}

// A run that has ended: the status of waitpid, and the last line on standard error.
struct End {
  int status = 0;
  bool has_hung = false;
  Outcome outcome = Outcome::kExited;
  std::string last_line;
};

// The new process. It leaves no core, ends with its parent, and prints nothing.
[[noreturn]] void Become(const DeclareSweep& sweep, const Declared& declared, int errors,
                         int outcomes, const sigset_t& mask) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  const rlimit none{0, 0};
  setrlimit(RLIMIT_CORE, &none);
  sigprocmask(SIG_SETMASK, &mask, nullptr);
  const int null = open("/dev/null", O_RDWR | O_CLOEXEC);
  dup2(null, STDIN_FILENO);
  dup2(null, STDOUT_FILENO);
  dup2(errors, STDERR_FILENO);
  auto outcome = Outcome::kExited;
  const int exit_code = sweep.run(declared, &outcome);
  std::exit(write(outcomes, &outcome, sizeof outcome) > 0 ? exit_code : EXIT_FAILURE);
}

// Runs that go on, by their processes.
class Runs {
 public:
  explicit Runs(const DeclareSweep& sweep) : sweep_(sweep) {
    signal(SIGCHLD, SIG_DFL);  // A process that inherits it ignored cannot wait for its children.
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
    Run run{number, Clock::now() + std::chrono::seconds(sweep_.timeout) + kGrace, false, {}, {}};
    std::cout.flush();
    const pid_t pid = fork();
    if (pid < 0) Fail("a process");
    if (pid == 0) {
      Become(sweep_, declared, run.errors.GetInput(), run.outcomes.GetInput(), mask_);
    }
    runs_.emplace(pid, std::move(run));
  }

  // Waits for the end of one, and returns its number.
  size_t AwaitOne(End* end) {
    for (;;) {
      for (auto run = runs_.begin(); run != runs_.end(); ++run) {
        const pid_t ended = waitpid(run->first, &end->status, WNOHANG);
        if (ended == 0 || (ended < 0 && errno == EINTR)) continue;
        const Run over = std::move(run->second);
        runs_.erase(run);
        if (ended < 0) throw std::runtime_error("the end of a run cannot be observed");
        end->has_hung = over.has_hung;
        end->last_line = LastLine(over.errors.Read());
        const std::string outcome = over.outcomes.Read();
        if (!outcome.empty()) end->outcome = static_cast<Outcome>(outcome.front());
        return over.number;
      }
      Wait();
    }
  }

 private:
  struct Run {
    size_t number;
    Clock::time_point deadline;
    bool has_hung;
    Pipe errors;
    Pipe outcomes;  // Gets an Outcome.
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

// Returns what is wrong with the end; nothing when it is as it should be.
std::string FindFault(const End& end) {
  if (end.has_hung) return "it hangs";
  if (!WIFSIGNALED(end.status)) return {};
  const int number = WTERMSIG(end.status);
  return "killed by signal " + std::to_string(number) + " (" + strsignal(number) + ')';
}

std::string Show(const Declared& declared) {
  return declared.first + '=' + std::to_string(declared.second);
}

std::string ShowLastLine(const End& end) {
  return end.last_line.empty() ? "" : ": " + end.last_line;
}

void Print(const std::string& line) {
  std::cout << line << std::endl;
  if (!std::cout) throw std::runtime_error("standard output cannot be written");
}

class Judge {
 public:
  explicit Judge(const DeclareSweep& sweep) : sweep_(sweep) {}

  // A plug-in whose event loop goes on may lack what it exits by.
  void Add(const Declared& declared, const End& end) {
    const std::string fault = FindFault(end);
    if (!fault.empty()) {
      ++failed_;
      Print("FAILED  " + Show(declared) + ": " + fault + ShowLastLine(end));
    } else if (end.outcome == Outcome::kNotRun) {
      throw std::runtime_error("with " + Show(declared) + ": it does not run" + ShowLastLine(end));
    } else if (end.outcome == Outcome::kRanOn) {
      ++ran_on_;
      Print("ran on  " + Show(declared) + ": no exit within " + std::to_string(sweep_.timeout) +
            " s");
    } else {
      ++(end.outcome == Outcome::kRefused ? refused_ : exited_);
    }
  }

  // Returns whether none has failed.
  bool Finish() const {
    Print(std::to_string(exited_ + refused_ + ran_on_ + failed_) + " sizes: " +
          std::to_string(exited_) + " exited, " + std::to_string(refused_) + " refused, " +
          std::to_string(ran_on_) + " ran on, " + std::to_string(failed_) + " failed");
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
  if (!fault.empty() || whole.outcome == Outcome::kRefused || whole.outcome == Outcome::kNotRun) {
    std::cerr << program << ": with whole tables: " << (fault.empty() ? "it does not run" : fault)
              << ShowLastLine(whole) << std::endl;
    return fault.empty() ? std::max(WEXITSTATUS(whole.status), 1) : 1;
  }
  return RunAll(sweep, runs) ? 0 : 1;
}

}  // namespace desk
