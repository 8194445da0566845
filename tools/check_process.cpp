#include "tools/check_process.h"

#include <poll.h>
#include <signal.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>

#include <QFile>

#include "desk/runtime_manager/application.h"
#include "desk/runtime_manager/supervised_process.h"
#include "desk/runtime_manager/task_socket.h"
#include "tools/printable.h"
#include "tools/processes.h"
#include "tools/session.h"

namespace tools {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr seconds kStartTime(10);
// The supervisor gives a process that is killed five seconds.
constexpr seconds kKillTime(7);

volatile std::sig_atomic_t last_signal = 0;

void OnSignal(int number) { last_signal = number; }

// One that this process was started to ignore stays ignored.
void Handle(void (*handler)(int number)) {
  for (const int number : {SIGINT, SIGTERM}) {
    struct sigaction action {};
    sigaction(number, nullptr, &action);
    if (action.sa_handler == SIG_IGN) continue;
    action.sa_handler = handler;
    sigaction(number, &action, nullptr);
  }
}

std::string ShowProcess(int pid) {
  std::string name;
  std::getline(std::ifstream("/proc/" + std::to_string(pid) + "/comm"), name);
  return '"' + Printable(name) + "\" (pid " + std::to_string(pid) + ')';
}

std::string DescribeEnd(int status) {
  if (!WIFSIGNALED(status)) return "ended with status " + std::to_string(WEXITSTATUS(status));
  const int number = WTERMSIG(status);
  return "was killed by signal " + std::to_string(number) + " (" + strsignal(number) + ')';
}

// The inodes of the sockets that the process has open, as in "socket:[4711]".
std::set<std::string> FindOpenSockets(int pid) {
  std::set<std::string> inodes;
  std::error_code error;
  const std::string directory = "/proc/" + std::to_string(pid) + "/fd";
  for (std::filesystem::directory_iterator entry(directory, error), end; !error && entry != end;
       entry.increment(error)) {
    std::error_code is_closed;
    const std::string target = std::filesystem::read_symlink(*entry, is_closed).string();
    if (target.rfind("socket:[", 0) == 0) inodes.insert(target.substr(8, target.size() - 9));
  }
  return inodes;
}

// The paths of the bound sockets, by their inodes. They are as they were bound: a path may be
// relative. One that begins with @ is no file.
std::map<std::string, std::string> ListBoundSockets() {
  std::map<std::string, std::string> paths;
  std::ifstream file("/proc/net/unix");
  for (std::string line; std::getline(file, line);) {
    std::istringstream fields(line);
    std::string field;
    std::string inode;
    std::string path;
    for (int i = 0; i < 6; ++i) fields >> field;
    fields >> inode >> std::ws;
    std::getline(fields, path);
    if (!path.empty() && path[0] != '@') paths.emplace(inode, path);
  }
  return paths;
}

}  // namespace

HeldSignals::HeldSignals() { Handle(OnSignal); }

HeldSignals::~HeldSignals() {
  Handle(SIG_DFL);
  if (last_signal != 0) raise(last_signal);
}

CheckedProcess::CheckedProcess() = default;

// After the other constructor the destructor runs also when this one throws.
CheckedProcess::CheckedProcess(const std::string& task) : CheckedProcess() {
  prctl(PR_SET_CHILD_SUBREAPER, 1);
  strangers_ = FindChildren();
  const QString name = QFile::decodeName(task.c_str());
  QString error;
  auto application = desk::FindApplication(name, &error);
  std::unique_ptr<desk::TaskSocket> socket;
  if (application) {
    application->command << QStringLiteral("--libs-path")
                         << QFile::decodeName(FindLibraryPath().c_str());
    socket = desk::TaskSocket::Listen(name, &error);
  }
  if (socket) process_ = desk::SupervisedProcess::Start(*application, socket.get(), &error);
  if (process_) {
    socket_path_ = socket->GetPath();
    private_directory_ = socket->GetPrivateDirectory();
    AwaitStart();
    error = QString::fromStdString(failure_);
  }
  if (is_running_) return;
  throw NotStarted("the task \"" + task + "\" could not be started: " + error.toStdString());
}

CheckedProcess::~CheckedProcess() {
  is_ending_ = true;
  if (process_ && end_.empty()) process_->Send(desk::Order::kKill);
  AwaitEnd(Clock::now() + kKillTime);
  if (!process_ && group_ > 0) AwaitGone(Clock::now() + kKillTime);
  // A supervisor that the task has stopped is among them. The news of its loss removes its files.
  const auto deadline = Clock::now() + kKillTime;
  for (auto left = ReapChildren(); !left.empty() && Clock::now() < deadline;
       left = ReapChildren()) {
    for (const int pid : left) kill(pid, SIGKILL);
    poll(nullptr, 0, kTick);
  }
  AwaitEnd(deadline);
  if (process_ || socket_path_.isEmpty()) return;
  unlink(socket_path_.constData());
  if (!private_directory_.isEmpty()) rmdir(private_directory_.constData());
}

void CheckedProcess::AwaitStart() {
  const auto deadline = Clock::now() + kStartTime;
  while (!is_running_ && failure_.empty()) {
    pollfd news{process_->GetDescriptor(), POLLIN, 0};
    if (IsOver(deadline)) {
      failure_ = "it takes too long";
    } else if (poll(&news, 1, kTick) > 0) {
      ReadNews();
    }
  }
  start_ = Clock::now();
}

bool CheckedProcess::IsOver(Clock::time_point deadline) const {
  if (last_signal != 0 && !is_ending_) throw std::runtime_error("interrupted");
  return Clock::now() >= deadline;
}

int CheckedProcess::GetDescriptor() const {
  return process_ && end_.empty() ? process_->GetDescriptor() : -1;
}

void CheckedProcess::ReadNews() {
  using News = desk::SupervisedProcess::News;
  QString cause;
  switch (process_->ReadNews(&cause)) {
    case News::kNone:
      break;
    case News::kRunning:
      is_running_ = true;
      group_ = process_->GetProcessId();
      break;
    case News::kFailed:
      failure_ = cause.toStdString();
      break;
    case News::kEnded:
      end_ = DescribeEnd(process_->GetStatus());
      signal_ = WIFSIGNALED(process_->GetStatus()) ? WTERMSIG(process_->GetStatus()) : 0;
      break;
    case News::kLost:
      (is_running_ ? end_ : failure_) = "is lost: " + cause.toStdString();
      signal_ = SIGKILL;
  }
}

bool CheckedProcess::AwaitEnd(Clock::time_point deadline) {
  while (GetDescriptor() >= 0) {
    const bool is_over = IsOver(deadline);
    pollfd news{GetDescriptor(), POLLIN, 0};
    if (poll(&news, 1, is_over ? 0 : kTick) > 0) {
      ReadNews();
    } else if (is_over) {
      return false;
    }
  }
  return true;
}

void CheckedProcess::Terminate() {
  if (process_) process_->Send(desk::Order::kTerminate);
}

bool CheckedProcess::Abandon(Clock::time_point deadline) {
  process_.reset();
  return AwaitGone(deadline);
}

bool CheckedProcess::AwaitGone(Clock::time_point deadline) const {
  const auto is_there = [this] {
    return kill(-group_, 0) == 0 || errno != ESRCH || access(socket_path_.constData(), F_OK) == 0;
  };
  bool is_left = is_there();
  for (; is_left && !IsOver(deadline); is_left = is_there()) poll(nullptr, 0, kTick);
  return !is_left;
}

std::set<std::string> CheckedProcess::FindSockets() const {
  std::set<std::string> paths;
  const auto bound = ListBoundSockets();
  for (const pid_t pid : FindGroup(group_)) {
    std::error_code is_gone;
    const auto directory =
        std::filesystem::read_symlink("/proc/" + std::to_string(pid) + "/cwd", is_gone);
    for (const std::string& inode : FindOpenSockets(pid)) {
      const auto found = bound.find(inode);
      if (found != bound.end()) paths.insert((directory / found->second).string());
    }
  }
  return paths;
}

// Without the children that this process had before. The supervisor is one of them until it ends.
std::set<int> CheckedProcess::ReapChildren() const {
  std::set<int> left;
  for (const int pid : FindChildren()) {
    if (strangers_.count(pid) == 0 && waitpid(pid, nullptr, WNOHANG) == 0) left.insert(pid);
  }
  return left;
}

std::string CheckedProcess::FindLeftovers(Clock::time_point deadline) const {
  std::set<int> left = ReapChildren();
  while (!left.empty() && !IsOver(deadline)) {
    poll(nullptr, 0, kTick);
    left = ReapChildren();
  }
  std::string names;
  for (const int pid : left) names += (names.empty() ? "" : ", ") + ShowProcess(pid);
  return names;
}

}  // namespace tools
