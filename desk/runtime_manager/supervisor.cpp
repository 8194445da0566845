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
#include <initializer_list>

namespace desk {
namespace {

constexpr int kHandedOverDescriptor = 3;
constexpr int kFirstFreeDescriptor = 10;  // Above all that dup2 may overwrite in the task.

void CloseRange(unsigned first, unsigned last) {
  if (first > last || close_range(first, last, 0) == 0) return;
  rlimit limit{};  // A kernel without close_range.
  getrlimit(RLIMIT_NOFILE, &limit);
  for (unsigned i = first; i <= last && i < limit.rlim_cur; ++i) close(static_cast<int>(i));
}

// The fork copied every descriptor of the starter. Held open here they would keep its sockets and
// pipes, and other tasks' life-lines, alive.
void CloseAllButStandardAnd(int link, int socket) {
  const auto low = static_cast<unsigned>(link < socket ? link : socket);
  const auto high = static_cast<unsigned>(link < socket ? socket : link);
  const unsigned first = STDERR_FILENO + 1;
  if (socket >= 0) {
    if (low > first) CloseRange(first, low - 1);
    CloseRange(low + 1, high - 1);
  } else if (high > first) {
    CloseRange(first, high - 1);
  }
  CloseRange(high + 1, ~0u);
}

void WriteDigits(char* to, pid_t value) {
  char digits[kListenPidDigits];
  int count = 0;
  for (; value > 0; value /= 10) digits[count++] = static_cast<char>('0' + value % 10);
  while (count > 0) *to++ = digits[--count];
  *to = '\0';
}

void ResetSignals() {
  struct sigaction standard {};
  standard.sa_handler = SIG_DFL;
  for (int number = 1; number < NSIG; ++number) sigaction(number, &standard, nullptr);
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
}

void Report(int descriptor, LaunchReport::Step step, int error) {
  const LaunchReport report{step, error};
  while (write(descriptor, &report, sizeof report) < 0 && errno == EINTR) {
  }
}

// In the task's process, up to the moment when the application takes it over. The report's pipe
// closes by itself when that succeeds.
[[noreturn]] void BecomeTask(const Launch& launch, int report) {
  setpgid(0, 0);
  prctl(PR_SET_PDEATHSIG, SIGKILL);  // Should somebody kill the supervisor.
  ResetSignals();
  const int null = open("/dev/null", O_RDONLY | O_CLOEXEC);
  if (null >= 0) dup2(null, STDIN_FILENO);
  if (launch.socket == kHandedOverDescriptor) {
    fcntl(launch.socket, F_SETFD, 0);
  } else if (launch.socket >= 0) {
    dup2(launch.socket, kHandedOverDescriptor);
  }
  WriteDigits(launch.listen_pid, getpid());
  if (launch.directory && chdir(launch.directory) != 0) {
    Report(report, LaunchReport::kDirectory, errno);
  } else {
    execve(launch.command[0], launch.command, launch.environment);
    Report(report, LaunchReport::kExec, errno);
  }
  _exit(127);
}

// Starts the task and tells the starter how that went. Returns its process id, -1 if there is none.
pid_t StartTask(const Launch& launch, int link) {
  int ends[2];
  pid_t task = -1;
  if (pipe2(ends, O_CLOEXEC) == 0) {
    const int report = fcntl(ends[1], F_DUPFD_CLOEXEC, kFirstFreeDescriptor);
    close(ends[1]);
    task = _Fork();
    if (task == 0) BecomeTask(launch, report);
    close(report);
  }
  LaunchReport outcome{LaunchReport::kRunning, 0};
  if (task < 0) {
    outcome = {LaunchReport::kFork, errno};
  } else {
    setpgid(task, task);  // Here, too: whoever comes first.
    while (read(ends[0], &outcome, sizeof outcome) < 0 && errno == EINTR) {
    }
    close(ends[0]);
  }
  send(link, &outcome, sizeof outcome, MSG_NOSIGNAL);
  return task;
}

int64_t NowMs() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000;
}

// Watches over one task's process group until it is gone.
class Watch {
 public:
  Watch(pid_t task, int link) : task_(task), link_(link) {}

  void Run() {
    while (!IsOver()) {
      WaitForNews();
      if (kill_at_ms_ >= 0 && NowMs() >= kill_at_ms_) Kill();
    }
  }

 private:
  // Reaps whatever ended (orphans of the group come here: this process is their subreaper).
  bool IsOver() {
    pid_t ended = 0;
    while ((ended = waitpid(-1, nullptr, WNOHANG)) > 0) {
      if (ended == task_) task_ended_ = true;
    }
    if (!task_ended_) return false;
    if (kill(-task_, 0) != 0 && errno == ESRCH) return true;
    Terminate();  // Its helpers end with it.
    return false;
  }

  void WaitForNews() {
    pollfd poll_link{link_, POLLIN, 0};
    timespec timeout{};
    const timespec* until = nullptr;
    if (kill_at_ms_ >= 0) {
      const int64_t left = kill_at_ms_ > NowMs() ? kill_at_ms_ - NowMs() : 0;
      timeout.tv_sec = static_cast<time_t>(left / 1000);
      timeout.tv_nsec = static_cast<long>(left % 1000 * 1000000);
      until = &timeout;
    }
    sigset_t all_but_child;
    sigfillset(&all_but_child);
    sigdelset(&all_but_child, SIGCHLD);
    if (ppoll(&poll_link, 1, until, &all_but_child) > 0) ReadCommand();
  }

  void ReadCommand() {
    char command = 0;
    const ssize_t size = recv(link_, &command, 1, MSG_DONTWAIT);
    if (size < 0 && (errno == EAGAIN || errno == EINTR)) return;
    if (size <= 0) {  // The starter is gone, or does not want the task any more.
      close(link_);
      link_ = -1;  // ppoll skips it from now on.
    }
    if (size > 0 && command == static_cast<char>(Command::kKill)) {
      Kill();
    } else {
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
    kill(-task_, SIGKILL);
  }

  const pid_t task_;
  int link_;
  bool task_ended_ = false;
  bool terminating_ = false;
  int64_t kill_at_ms_ = -1;  // When patience ends; -1: not decided, or done.
};

}  // namespace

void RunSupervisor(const Launch& launch, int link) {
  setsid();
  prctl(PR_SET_CHILD_SUBREAPER, 1);
  struct sigaction wake {};
  wake.sa_handler = [](int) {};  // SIGCHLD only has to end a wait.
  sigaction(SIGCHLD, &wake, nullptr);
  const int high_link = fcntl(link, F_DUPFD_CLOEXEC, kFirstFreeDescriptor);
  CloseAllButStandardAnd(high_link, launch.socket);

  const pid_t task = StartTask(launch, high_link);
  for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) close(descriptor);
  if (launch.socket >= 0) close(launch.socket);
  if (task > 0) Watch(task, high_link).Run();
  if (launch.socket_path) unlink(launch.socket_path);
  if (launch.private_directory) rmdir(launch.private_directory);
  _exit(0);
}

}  // namespace desk
