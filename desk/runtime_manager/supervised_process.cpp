#include "desk/runtime_manager/supervised_process.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

#include <QFile>
#include <QStringList>

#include "desk/common/diagnostics.h"
#include "desk/common/transfer.h"
#include "desk/runtime_manager/socket_directory.h"
#include "desk/runtime_manager/socket_files.h"

extern "C" char** environ;

namespace desk {
namespace {

// The supervisor lies beside this library. The dynamic loader may know the library by a relative
// path, so the path is resolved before the working directory can change. Empty when that fails.
// Never destroyed, because tasks are also started while a process exits.
const std::string& kSupervisor = *new std::string([] {
  Dl_info library{};
  dladdr(reinterpret_cast<const void*>(&RemoveDeadIntents), &library);
  std::error_code error;
  const auto path = std::filesystem::canonical(library.dli_fname ? library.dli_fname : "", error);
  return error ? std::string() : (path.parent_path() / "tavo-supervisor").string();
}());

std::vector<char*> Pointers(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  pointers.reserve(texts.size() + 1);
  for (std::string& text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

// Returns the starter's environment with the announcement of this socket in the place of an earlier
// one, except the task's process id, which the supervisor adds.
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
  return entries;
}

// In the order of SupervisorArgument.
std::vector<std::string> SupervisorCommand(const Application& application, const TaskSocket* socket,
                                           int link, bool spares_leftovers) {
  std::vector<std::string> command{
      kSupervisor,
      std::to_string(link),
      socket ? std::to_string(socket->GetDescriptor()) : "",
      socket ? socket->GetPath().toStdString() : "",
      socket ? socket->GetPrivateDirectory().toStdString() : "",
      GetSharedDirectory().toStdString(),
      QFile::encodeName(application.directory).toStdString(),
      spares_leftovers ? "spare" : "",
  };
  for (const QString& word : application.command) {
    command.push_back(QFile::encodeName(word).toStdString());
  }
  return command;
}

// The socket pair between the starter and a supervisor.
class Link {
 public:
  Link() {
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends_) != 0) return;
    for (int& end : ends_) end = AboveStandard(end);
  }
  ~Link() {
    for (const int end : ends_) {
      if (end >= 0) close(end);
    }
  }
  Link(const Link&) = delete;
  Link& operator=(const Link&) = delete;

  bool IsOpen() const { return ends_[0] >= 0 && ends_[1] >= 0; }
  int GetOurs() const { return ends_[0]; }
  int GetTheirs() const { return ends_[1]; }
  void ReleaseOurs() { ends_[0] = -1; }

 private:
  int ends_[2] = {-1, -1};
};

// Lets a program inherit these descriptors, with every signal blocked.
class SpawnPlan {
 public:
  SpawnPlan(std::initializer_list<int> descriptors, const SupervisedProcess::Streams& streams) {
    posix_spawn_file_actions_init(&actions_);
    for (const int descriptor : descriptors) HandOver(descriptor, descriptor);
    posix_spawn_file_actions_addopen(&actions_, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    HandOver(streams.input, STDIN_FILENO);
    HandOver(streams.output, STDOUT_FILENO);
    sigset_t all;
    sigfillset(&all);
    posix_spawnattr_init(&attributes_);
    posix_spawnattr_setsigmask(&attributes_, &all);
    posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGMASK);
  }
  ~SpawnPlan() {
    posix_spawnattr_destroy(&attributes_);
    posix_spawn_file_actions_destroy(&actions_);
  }
  SpawnPlan(const SpawnPlan&) = delete;
  SpawnPlan& operator=(const SpawnPlan&) = delete;

  // Returns 0 or the errno of the failure, after the program has ended. Its exit code is an errno,
  // too.
  int Run(char* const* command, char* const* environment) const {
    pid_t child = 0;
    const int error =
        posix_spawnp(&child, command[0], &actions_, &attributes_, command, environment);
    if (error != 0) return error;
    int status = 0;
    pid_t reaped = -1;
    do {
      reaped = waitpid(child, &status, 0);
    } while (reaped < 0 && errno == EINTR);
    if (reaped != child || !WIFEXITED(status)) return 0;  // The link reports the rest.
    return WEXITSTATUS(status) == kNotExecuted ? ENOEXEC : WEXITSTATUS(status);
  }

 private:
  static constexpr int kNotExecuted = 127;  // An emulated spawn reports it so.

  void HandOver(int descriptor, int number) {
    if (descriptor >= 0) posix_spawn_file_actions_adddup2(&actions_, descriptor, number);
  }

  posix_spawn_file_actions_t actions_;
  posix_spawnattr_t attributes_;
};

// Returns 0 or the errno of the failure.
int StartSupervisor(std::vector<std::string> command, std::vector<std::string> environment,
                    const SpawnPlan& plan) {
  if (access(kSupervisor.c_str(), X_OK) != 0) return errno;  // An emulated spawn cannot report it.
  const std::vector<char*> environment_pointers = Pointers(environment);
  const int error = plan.Run(Pointers(command).data(), environment_pointers.data());
  // The machine may need an emulator for programs of this build.
  const std::string emulator = TAVO_DESK_EMULATOR;
  if (error != ENOEXEC || emulator.empty()) return error;
  const QStringList words = QString::fromStdString(emulator).split(QLatin1Char(' '));
  for (int i = words.size(); i-- > 0;) command.insert(command.begin(), words[i].toStdString());
  return plan.Run(Pointers(command).data(), environment_pointers.data());
}

}  // namespace

std::unique_ptr<SupervisedProcess> SupervisedProcess::Start(const Application& application,
                                                            TaskSocket* socket, QString* error,
                                                            Leftovers leftovers,
                                                            const Streams& streams) {
  if (kSupervisor.empty()) {
    *error =
        QStringLiteral("the folder of libruntimemanager.so, and so of its supervisor, is unknown");
    return nullptr;
  }
  Link link;
  if (!link.IsOpen()) {
    *error = ErrnoText();
    return nullptr;
  }
  const SpawnPlan plan({link.GetTheirs(), socket ? socket->GetDescriptor() : -1}, streams);
  const int start_error = StartSupervisor(
      SupervisorCommand(application, socket, link.GetTheirs(), leftovers == Leftovers::kSpared),
      EnvironmentFor(socket), plan);
  std::unique_ptr<SupervisedProcess> process(new SupervisedProcess(link.GetOurs(), socket));
  link.ReleaseOurs();
  if (start_error != 0) {
    *error = QStringLiteral("its supervisor %1: %2")
                 .arg(QString::fromStdString(kSupervisor), ErrnoText(start_error));
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
      // If orphans are re-parented to this process (the first one of a container), so is the
      // supervisor.
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

// The supervisor was killed: this ends the group and removes the files in its place.
SupervisedProcess::News SupervisedProcess::OnLinkEnd(QString* error) {
  if (group_ > 0) kill(-group_, SIGKILL);
  if (!socket_path_.isEmpty()) unlink(socket_path_.constData());
  if (!private_directory_.isEmpty()) rmdir(private_directory_.constData());
  RemoveDeadIntents(GetSharedDirectory().constData());
  *error = QStringLiteral("its supervisor was killed");
  return News::kLost;
}

void SupervisedProcess::Send(Order order) {
  const size_t sent = MoveAll(
      sizeof order, [&](size_t, size_t left) { return send(link_, &order, left, MSG_NOSIGNAL); });
  if (sent < sizeof order) shutdown(link_, SHUT_WR);  // The end of the stream means kTerminate.
}

}  // namespace desk
