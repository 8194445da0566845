#include "desk/runtime_manager/task_report.h"

#include <sys/wait.h>
#include <unistd.h>

#include <map>
#include <mutex>
#include <utility>

#include "desk/common/diagnostics.h"
#include "desk/runtime_manager/recorder.h"
#include "desk/runtime_manager/task_socket.h"

namespace desk {
namespace {

// The tasks of this process that have a socket, by its path. Never destroyed: tasks may end while
// the process exits.
class SocketTasks {
 public:
  static SocketTasks& Get() {
    static auto& tasks = *new SocketTasks;
    return tasks;
  }

  void Add(const QString& path, int process) {
    const std::lock_guard lock(mutex_);
    tasks_[path] = {process};
  }

  void NoteAnswer(const QString& path) {
    const std::lock_guard lock(mutex_);
    const auto found = tasks_.find(path);
    if (found != tasks_.end()) found->second.has_answered = true;
  }

  bool HasAnswered(const QString& path) { return Find(path).has_answered; }
  int GetProcessId(const QString& path) { return Find(path).process; }

  void Remove(const QString& path) {
    const std::lock_guard lock(mutex_);
    tasks_.erase(path);
  }

 private:
  struct SocketTask {
    int process = 0;
    bool has_answered = false;  // It has accepted a connection.
  };

  SocketTask Find(const QString& path) {
    const std::lock_guard lock(mutex_);
    const auto found = tasks_.find(path);
    return found != tasks_.end() ? found->second : SocketTask();
  }

  std::mutex mutex_;
  std::map<QString, SocketTask> tasks_;  // Guarded by mutex_.
};

// Never destroyed, as the above.
std::function<void(const QString& news, bool has_ended)>& Redirection() {
  static auto& function = *new std::function<void(const QString& news, bool has_ended)>;
  return function;
}

}  // namespace

TaskReport::TaskReport(QString task, QString socket_path)
    : task_(std::move(task)), socket_path_(std::move(socket_path)) {}

TaskReport::~TaskReport() { SocketTasks::Get().Remove(socket_path_); }

void TaskReport::NoteAnswer(const QString& socket_path) {
  SocketTasks::Get().NoteAnswer(socket_path);
}

void TaskReport::Redirect(std::function<void(const QString& news, bool has_ended)> function) {
  Redirection() = std::move(function);
}

void TaskReport::NoteLostConnection(const QString& socket_path) {
  if (!Redirection()) return;
  const QString task = TaskSocket::GetTask(socket_path);
  Redirection()(QStringLiteral("the connection to the task \"%1\" is lost").arg(task), false);
}

int TaskReport::GetProcessId(const QString& socket_path) {
  return SocketTasks::Get().GetProcessId(socket_path);
}

void TaskReport::OnStart(int process) {
  process_ = process;
  if (!socket_path_.isEmpty()) SocketTasks::Get().Add(socket_path_, process);
  watchable_.emplace(MakeEvent("running"));
  RecordIfWanted(MakeEvent("start"));
}

void TaskReport::OnEnd(int status, bool is_asked_for) {
  const bool is_killed = WIFSIGNALED(status);
  const int number = is_killed ? WTERMSIG(status) : WEXITSTATUS(status);
  QJsonObject event = MakeEvent("end");
  event.insert(is_killed ? QStringLiteral("signal") : QStringLiteral("status"), number);
  if (is_asked_for) event.insert(QStringLiteral("stopped"), true);
  RecordIfWanted(event);
  watchable_.reset();
  const bool is_mute = !socket_path_.isEmpty() && !SocketTasks::Get().HasAnswered(socket_path_);
  if (is_asked_for) return;
  const QString end = is_killed ? QStringLiteral("was killed by signal %1")
                                : QStringLiteral("ended with status %1");
  Tell(end.arg(number) + (is_mute ? QStringLiteral(" before it answered a connection") : QString()),
       status != 0 || is_mute);
}

void TaskReport::OnLoss(const QString& cause) {
  QJsonObject event = MakeEvent("loss");
  event.insert(QStringLiteral("cause"), cause);
  RecordIfWanted(event);
  watchable_.reset();
  Tell(QStringLiteral("is lost: ") + cause, true);
}

QJsonObject TaskReport::MakeEvent(const char* event) const {
  return {{QStringLiteral("event"), QLatin1String(event)},
          {QStringLiteral("pid"), process_},
          {QStringLiteral("starter"), getpid()},
          {QStringLiteral("task"), task_}};
}

void TaskReport::Tell(const QString& text, bool is_told) const {
  const QString end = QStringLiteral("task \"%1\" (pid %2) %3").arg(task_).arg(process_).arg(text);
  if (Redirection()) return Redirection()(end, true);
  if (is_told) ReportError(end);
}

}  // namespace desk
