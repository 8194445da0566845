#include "desk/runtime_manager/supervisor.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <initializer_list>

#include "desk/common/transfer.h"
#include "desk/runtime_manager/socket_directory.h"

namespace desk {
namespace {

constexpr char kName[] = "tavo-supervisor";
constexpr int kHandedOverDescriptor = 3;
constexpr rlim_t kMaxClosed = 1 << 16;  // Limits may be huge, and closing one by one is slow.
constexpr long kTickMs = 50;
constexpr int64_t kGiveUpMs = 5000;       // After killing: nothing else can be done.
constexpr int kFirstFreeDescriptor = 10;  // Above the descriptors that dup2 may overwrite.

void CloseRange(unsigned first, unsigned last) {
  if (first > last || close_range(first, last, 0) == 0) return;
  rlimit limit{};  // The kernel has no close_range.
  getrlimit(RLIMIT_NOFILE, &limit);
  const rlim_t end = limit.rlim_cur < kMaxClosed ? limit.rlim_cur : kMaxClosed;
  for (unsigned i = first; i <= last && i < end; ++i) close(static_cast<int>(i));
}

// Programs that the starter executes may inherit some of its descriptors. If the supervisor kept
// them open, it would keep the starter's sockets and pipes alive. The standard ones stay open.
void CloseAllBut(int one, int other) {
  int next = STDERR_FILENO + 1;
  for (const int kept : {one < other ? one : other, one < other ? other : one}) {
    if (kept < next) continue;
    CloseRange(static_cast<unsigned>(next), static_cast<unsigned>(kept) - 1);
    next = kept + 1;
  }
  CloseRange(static_cast<unsigned>(next), ~0u);
}

// Moves a descriptor above those that the task gets; -1 stays -1. False, with nothing moved, when
// the process may not have so many descriptors; errno is EMFILE then.
bool MoveUp(int* descriptor) {
  if (*descriptor < 0) return true;
  const int moved = fcntl(*descriptor, F_DUPFD_CLOEXEC, kFirstFreeDescriptor);
  if (moved < 0) {
    if (errno == EINVAL) errno = EMFILE;
    return false;
  }
  close(*descriptor);
  *descriptor = moved;
  return true;
}

// A starter may run without standard descriptors; the task gets all three.
void FillStandardDescriptors() {
  for (int standard = STDIN_FILENO; standard <= STDERR_FILENO; ++standard) {
    if (fcntl(standard, F_GETFD) < 0) open("/dev/null", O_RDWR);  // Takes the lowest free one.
  }
}

struct Launch {
  int link;
  int socket;                     // -1: none.
  const char* directory;          // Null: no change.
  const char* socket_path;        // Null: none.
  const char* private_directory;  // Null: none.
  const char* shared_directory;
  bool spares_leftovers;
  char** command;  // Ends with a null pointer.
};

Launch ReadArguments(char** arguments) {
  const auto text = [=](SupervisorArgument which) {
    return *arguments[which] ? arguments[which] : nullptr;
  };
  return {std::atoi(arguments[kLink]),
          text(kSocket) ? std::atoi(arguments[kSocket]) : -1,
          text(kDirectory),
          text(kSocketPath),
          text(kPrivateDirectory),
          text(kSharedDirectory),
          text(kSparesLeftovers) != nullptr,
          arguments + kTaskCommand};
}

void ResetSignals() {
  struct sigaction standard {};
  standard.sa_handler = SIG_DFL;
  for (int number = 1; number < NSIG; ++number) sigaction(number, &standard, nullptr);
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
}

// The rest of the announcement is in the environment already.
void AnnounceSocket(int socket) {
  dup2(socket, kHandedOverDescriptor);
  char process[16];
  std::snprintf(process, sizeof process, "%d", getpid());
  setenv("LISTEN_PID", process, 1);
}

// Runs in the task's process until the application takes it over. A failure is reported through the
// pipe, which closes by itself on success.
[[noreturn]] void BecomeTask(const Launch& launch, pid_t supervisor, int pipe) {
  setpgid(0, 0);
  prctl(PR_SET_PDEATHSIG, SIGKILL);  // In case the supervisor is killed.
  if (getppid() != supervisor) _exit(127);
  ResetSignals();
  if (launch.socket >= 0) AnnounceSocket(launch.socket);
  SupervisorReport failure{SupervisorReport::kDirectoryFailed, 0, 0, 0, 0};
  if (!launch.directory || chdir(launch.directory) == 0) {
    execve(launch.command[0], launch.command, environ);
    failure.kind = SupervisorReport::kExecFailed;
  }
  failure.error = errno;
  const auto* bytes = reinterpret_cast<const char*>(&failure);
  MoveAll(sizeof failure,
          [=](size_t done, size_t left) { return write(pipe, bytes + done, left); });
  _exit(127);
}

// Starts the task and waits until the application has taken over or has failed to. The report's
// task is 0 when there is no process.
SupervisorReport StartTask(const Launch& launch) {
  SupervisorReport report{SupervisorReport::kForkFailed, 0, 0, getpid(), 0};
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) {
    report.error = errno;
    return report;
  }
  const pid_t task = MoveUp(&ends[1]) ? _Fork() : -1;
  if (task == 0) BecomeTask(launch, report.supervisor, ends[1]);
  report.error = errno;
  close(ends[1]);
  if (task > 0) {
    setpgid(task, task);  // Both processes call it, in any order.
    report = {SupervisorReport::kRunning, 0, task, report.supervisor, 0};
    SupervisorReport failure{};
    auto* bytes = reinterpret_cast<char*>(&failure);
    const size_t size = MoveAll(sizeof failure, [&](size_t done, size_t left) {
      return read(ends[0], bytes + done, left);
    });
    if (size == sizeof failure) {
      report.kind = failure.kind;
      report.error = failure.error;
    }
  }
  close(ends[0]);
  return report;
}

void Tell(const SupervisorReport& report, int link) {
  const auto* bytes = reinterpret_cast<const char*>(&report);
  MoveAll(sizeof report,
          [=](size_t done, size_t left) { return send(link, bytes + done, left, MSG_NOSIGNAL); });
}

int64_t NowMs() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000;
}

// Watches one task's process group until it has ended.
class Watch {
 public:
  Watch(pid_t task, int link, bool spares_leftovers)
      : task_(task), spares_leftovers_(spares_leftovers), link_(link) {}

  // Returns the status with which the task has ended.
  int Run() {
    while (!IsOver()) {
      WaitForNews();
      if (kill_at_ms_ >= 0 && NowMs() >= kill_at_ms_) Kill();
    }
    return status_;
  }

 private:
  // Reaps ended processes. Orphans of the group come here, because this process is their subreaper.
  bool IsOver() {
    pid_t ended = 0;
    int status = 0;
    while ((ended = waitpid(-1, &status, WNOHANG)) > 0) {
      if (ended != task_) continue;
      task_ended_ = true;
      status_ = status;
    }
    if (!task_ended_) return false;
    if (spares_leftovers_) return true;
    if (kill(-task_, 0) != 0 && errno == ESRCH) return true;
    if (give_up_at_ms_ >= 0 && NowMs() >= give_up_at_ms_) return true;
    Terminate();  // The rest of its group is ended, too.
    return false;
  }

  void WaitForNews() {
    pollfd poll_link{link_, POLLIN, 0};
    // If this process is no subreaper (an emulator may not support that), no signal tells when the
    // last process of the group has ended.
    const timespec tick{0, kTickMs * 1000000};
    sigset_t all_but_child;
    sigfillset(&all_but_child);
    sigdelset(&all_but_child, SIGCHLD);
    if (ppoll(&poll_link, 1, terminating_ ? &tick : nullptr, &all_but_child) > 0) ReadOrder();
  }

  void ReadOrder() {
    char order = 0;
    const ssize_t size = recv(link_, &order, 1, MSG_DONTWAIT);
    if (size < 0 && IsTransient(errno)) return;
    if (size <= 0) {  // The starter has ended, or asks to end the task.
      link_ = -1;     // ppoll skips it from now on. Other processes may hold the other end.
    }
    if (size > 0 && order == static_cast<char>(Order::kKill)) {
      Kill();
    } else if (size <= 0 || order == static_cast<char>(Order::kTerminate)) {
      Terminate();
    }
  }

  void Terminate() {
    if (terminating_) return;
    terminating_ = true;
    kill(-task_, SIGTERM);
    kill(-task_, SIGCONT);  // A stopped process could not obey.
    kill_at_ms_ = NowMs() + int64_t{kTermGraceSeconds} * 1000;
  }

  void Kill() {
    terminating_ = true;
    kill_at_ms_ = -1;
    give_up_at_ms_ = NowMs() + kGiveUpMs;
    kill(-task_, SIGKILL);
  }

  const pid_t task_;
  const bool spares_leftovers_;
  int link_;
  int status_ = 0;
  bool task_ended_ = false;
  bool terminating_ = false;
  int64_t kill_at_ms_ = -1;  // The time to kill; -1: none.
  int64_t give_up_at_ms_ = -1;
};

[[noreturn]] void RunSupervisor(Launch launch) {
  setsid();
  prctl(PR_SET_NAME, kName);  // Under an emulator it is the emulator's.
  prctl(PR_SET_CHILD_SUBREAPER, 1);
  struct sigaction wake {};
  wake.sa_handler = [](int) {};  // SIGCHLD only has to end a wait.
  sigaction(SIGCHLD, &wake, nullptr);

  CloseAllBut(launch.link, launch.socket);
  SupervisorReport report{SupervisorReport::kForkFailed, 0, 0, getpid(), 0};
  if (MoveUp(&launch.link) && MoveUp(&launch.socket)) {
    FillStandardDescriptors();
    report = StartTask(launch);
  } else {
    report.error = errno;
  }
  for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO, launch.socket}) {
    if (descriptor >= 0) close(descriptor);
  }
  Tell(report, launch.link);
  if (chdir("/") != 0) {  // It must not keep a file system busy.
    report.error = errno;
  }
  if (report.task > 0) {
    report.status = Watch(report.task, launch.link, launch.spares_leftovers).Run();
  }

  if (launch.socket_path) unlink(launch.socket_path);
  if (launch.private_directory) rmdir(launch.private_directory);
  if (launch.shared_directory) RemoveDeadIntents(launch.shared_directory);
  report.kind = SupervisorReport::kDone;
  Tell(report, launch.link);
  _exit(0);
}

}  // namespace
}  // namespace desk

// This uses two processes: the supervisor becomes an orphan, so the starter only has to reap the
// first process, which ends at once.
int main(int count, char** arguments) {
  if (count <= desk::kTaskCommand) {
    std::fprintf(stderr, "%s: it is started by libruntimemanager.so, for each task of the desk\n",
                 desk::kName);
    return EINVAL;
  }
  const pid_t supervisor = _Fork();
  if (supervisor == 0) desk::RunSupervisor(desk::ReadArguments(arguments));
  _exit(supervisor < 0 ? errno : 0);
}
