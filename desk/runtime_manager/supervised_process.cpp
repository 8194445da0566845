#include "desk/runtime_manager/supervised_process.h"

#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include <QFile>

#include "desk/runtime_manager/transfer.h"

extern "C" char** environ;

namespace desk {
namespace {

QString ErrnoText(int error) { return QString::fromLocal8Bit(std::strerror(error)); }

std::vector<char*> Pointers(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  pointers.reserve(texts.size() + 1);
  for (std::string& text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

// The starter's environment with the socket's announcement in place of an earlier one. The last
// entry has room for the digits of the task's process id.
constexpr char kListenPid[] = "LISTEN_PID=";

std::vector<std::string> EnvironmentFor(const TaskSocket* socket) {
  std::vector<std::string> entries;
  for (char** entry = environ; entry && *entry; ++entry) {
    const std::string_view text(*entry);
    const std::string_view name = text.substr(0, text.find('='));
    if (name != "LISTEN_PID" && name != "LISTEN_FDS" && name != "LISTEN_FDNAMES") {
      entries.emplace_back(text);
    }
  }
  if (socket) entries.insert(entries.end(), {"LISTEN_FDS=1", "LISTEN_FDNAMES=tavo"});
  entries.push_back(kListenPid + std::string(kListenPidDigits, '\0'));
  return entries;
}

// Two forks: the supervisor becomes nobody's child, so that there is nothing to reap for the
// starter but the first one, which ends at once. No signal handler of the starter runs in between.
int ForkSupervisor(const Launch& launch, int link) {
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);
  const pid_t child = _Fork();
  if (child == 0) {
    const pid_t supervisor = _Fork();
    if (supervisor == 0) RunSupervisor(launch, link);
    _exit(supervisor < 0 ? errno : 0);
  }
  const int fork_error = child < 0 ? errno : 0;
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  if (fork_error != 0) return fork_error;
  int status = 0;
  pid_t reaped = -1;
  do {
    reaped = waitpid(child, &status, 0);
  } while (reaped < 0 && errno == EINTR);
  return reaped == child && WIFEXITED(status) ? WEXITSTATUS(status) : 0;
}

}  // namespace

std::unique_ptr<SupervisedProcess> SupervisedProcess::Start(const Application& application,
                                                            TaskSocket* socket, QString* error,
                                                            Leftovers leftovers) {
  std::vector<std::string> command;
  for (const QString& word : application.command) {
    command.push_back(QFile::encodeName(word).toStdString());
  }
  std::vector<std::string> environment = EnvironmentFor(socket);
  const std::vector<char*> command_pointers = Pointers(command);
  std::vector<char*> environment_pointers = Pointers(environment);
  char* listen_pid = environment.back().data() + std::strlen(kListenPid);
  if (!socket) environment_pointers[environment.size() - 1] = nullptr;
  const QByteArray directory = QFile::encodeName(application.directory);
  const auto null_if_empty = [](const QByteArray& text) {
    return text.isEmpty() ? nullptr : text.constData();
  };

  int ends[2];
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) {
    *error = ErrnoText(errno);
    return nullptr;
  }
  const Launch launch{command_pointers.data(),
                      environment_pointers.data(),
                      listen_pid,
                      null_if_empty(directory),
                      socket ? socket->GetDescriptor() : -1,
                      socket ? socket->GetPath().constData() : nullptr,
                      socket ? null_if_empty(socket->GetPrivateDirectory()) : nullptr,
                      leftovers == Leftovers::kSpared};
  const int fork_error = ForkSupervisor(launch, ends[1]);
  close(ends[1]);
  std::unique_ptr<SupervisedProcess> process(new SupervisedProcess(ends[0], socket));
  if (fork_error != 0) {
    *error = ErrnoText(fork_error);
    return nullptr;
  }
  if (socket) socket->HandOver();
  return process;
}

SupervisedProcess::SupervisedProcess(int link, const TaskSocket* socket)
    : link_(link),
      socket_path_(socket ? socket->GetPath() : QByteArray()),
      private_directory_(socket ? socket->GetPrivateDirectory() : QByteArray()) {}

SupervisedProcess::~SupervisedProcess() { close(link_); }

SupervisedProcess::News SupervisedProcess::ReadNews(QString* error) {
  const ssize_t size = recv(link_, reinterpret_cast<char*>(&report_) + report_size_,
                            sizeof report_ - report_size_, MSG_DONTWAIT);
  if (size < 0 && IsTransient(errno)) return News::kNone;
  if (size <= 0) return OnLinkEnd(error);
  report_size_ += static_cast<size_t>(size);
  if (report_size_ < sizeof report_) return News::kNone;
  report_size_ = 0;
  return OnReport(report_, error);
}

SupervisedProcess::News SupervisedProcess::OnReport(const SupervisorReport& report,
                                                    QString* error) {
  group_ = report.task;
  status_ = report.status;
  switch (report.kind) {
    case SupervisorReport::kRunning:
      return News::kRunning;
    case SupervisorReport::kDone:
      // Where orphans come to this process (the first one of a container), this one does, too.
      waitpid(report.supervisor, nullptr, 0);
      return News::kEnded;
    case SupervisorReport::kDirectoryFailed:
      *error = QStringLiteral("its directory: ") + ErrnoText(report.error);
      return News::kFailed;
    default:
      *error = ErrnoText(report.error);
      return News::kFailed;
  }
}

// The supervisor did not come to its end: what it leaves is ended and removed here.
SupervisedProcess::News SupervisedProcess::OnLinkEnd(QString* error) {
  if (group_ > 0) kill(-group_, SIGKILL);
  if (!socket_path_.isEmpty()) unlink(socket_path_.constData());
  if (!private_directory_.isEmpty()) rmdir(private_directory_.constData());
  *error = QStringLiteral("its supervisor was killed");
  return News::kLost;
}

void SupervisedProcess::Send(Command command) {
  const size_t sent = MoveAll(sizeof command, [&](size_t, size_t left) {
    return send(link_, &command, left, MSG_NOSIGNAL);
  });
  if (sent < sizeof command) shutdown(link_, SHUT_WR);  // The end says to terminate.
}

}  // namespace desk
