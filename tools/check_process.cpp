#include "tools/check_process.h"

#include <dlfcn.h>
#include <poll.h>
#include <signal.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <sstream>

#include <QFile>

#include "desk/runtime_manager/application.h"
#include "desk/runtime_manager/supervised_process.h"
#include "desk/runtime_manager/task_socket.h"
#include "tools/printable.h"

namespace tools {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr milliseconds kTick(10);
constexpr seconds kStartTime(10);
// The supervisor gives a process that is killed five seconds.
constexpr seconds kKillTime(7);

int GetMilliseconds(CheckedProcess::Clock::duration time) {
  return static_cast<int>(std::max<int64_t>(0, std::chrono::ceil<milliseconds>(time).count()));
}

// The directory of libtavo.so, which each task is told: that of the runtime manager.
QString FindLibraryPath() {
  Dl_info library{};
  if (dladdr(reinterpret_cast<void*>(&desk::FindApplication), &library) == 0) {
    throw NotStarted("libtavo.so cannot be found");
  }
  const auto path = std::filesystem::absolute(library.dli_fname).lexically_normal();
  return QFile::decodeName(path.parent_path().c_str());
}

std::set<int> FindChildren() {
  std::set<int> children;
  std::ifstream file("/proc/thread-self/children");
  for (int pid = 0; file >> pid;) children.insert(pid);
  return children;
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

}  // namespace

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
    application->command << QStringLiteral("--libs-path") << FindLibraryPath();
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
  if (process_ && end_.empty()) process_->Send(desk::Order::kKill);
  AwaitEnd(Clock::now() + kKillTime);
  if (!process_ && group_ > 0) AwaitGone(Clock::now() + kKillTime);
  // A supervisor that the task has stopped is among them. The news of its loss removes its files.
  const auto deadline = Clock::now() + kKillTime;
  for (auto left = ReapChildren(); !left.empty() && Clock::now() < deadline;
       left = ReapChildren()) {
    for (const int pid : left) kill(pid, SIGKILL);
    poll(nullptr, 0, GetMilliseconds(kTick));
  }
  AwaitEnd(deadline);
  if (process_ || socket_path_.isEmpty()) return;
  unlink(socket_path_.constData());
  if (!private_directory_.isEmpty()) rmdir(private_directory_.constData());
}

void CheckedProcess::AwaitStart() {
  const auto deadline = Clock::now() + kStartTime;
  while (!is_running_ && failure_.empty()) {
    const auto left = deadline - Clock::now();
    pollfd news{process_->GetDescriptor(), POLLIN, 0};
    if (left <= Clock::duration::zero()) {
      failure_ = "it takes too long";
    } else if (poll(&news, 1, GetMilliseconds(left)) > 0) {
      ReadNews();
    }
  }
  start_ = Clock::now();
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
    const auto left = deadline - Clock::now();
    pollfd news{GetDescriptor(), POLLIN, 0};
    if (poll(&news, 1, GetMilliseconds(left)) > 0) {
      ReadNews();
    } else if (left <= Clock::duration::zero()) {
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
  for (; is_left && Clock::now() < deadline; is_left = is_there()) {
    poll(nullptr, 0, GetMilliseconds(kTick));
  }
  return !is_left;
}

std::set<std::string> CheckedProcess::FindSockets() const {
  std::set<std::string> paths;
  const std::set<std::string> inodes = FindOpenSockets(group_);
  std::ifstream file("/proc/net/unix");
  for (std::string line; std::getline(file, line);) {
    std::istringstream fields(line);
    std::string field;
    std::string inode;
    std::string path;
    for (int i = 0; i < 6; ++i) fields >> field;
    fields >> inode >> std::ws;
    std::getline(fields, path);
    if (!path.empty() && path[0] == '/' && inodes.count(inode) != 0) paths.insert(path);
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
  while (!left.empty() && Clock::now() < deadline) {
    poll(nullptr, 0, GetMilliseconds(kTick));
    left = ReapChildren();
  }
  std::string names;
  for (const int pid : left) names += (names.empty() ? "" : ", ") + ShowProcess(pid);
  return names;
}

}  // namespace tools
