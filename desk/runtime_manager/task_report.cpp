#include "desk/runtime_manager/task_report.h"

#include <sys/wait.h>

#include <map>
#include <mutex>
#include <utility>

#include <QJsonObject>

#include "desk/common/diagnostics.h"
#include "desk/runtime_manager/recorder.h"

namespace desk {
namespace {

// The sockets of this process's tasks, and whether the task has accepted a connection. Never
// destroyed: tasks may end while the process exits.
class Answers {
 public:
  static Answers& Get() {
    static auto& answers = *new Answers;
    return answers;
  }

  void Add(const QString& path) {
    const std::lock_guard lock(mutex_);
    answers_[path] = false;
  }

  void Note(const QString& path) {
    const std::lock_guard lock(mutex_);
    const auto found = answers_.find(path);
    if (found != answers_.end()) found->second = true;
  }

  bool Has(const QString& path) {
    const std::lock_guard lock(mutex_);
    const auto found = answers_.find(path);
    return found != answers_.end() && found->second;
  }

  void Remove(const QString& path) {
    const std::lock_guard lock(mutex_);
    answers_.erase(path);
  }

 private:
  std::mutex mutex_;
  std::map<QString, bool> answers_;  // Guarded by mutex_.
};

// Never destroyed, as the above.
std::function<void(const QString& end)>& Redirection() {
  static auto& function = *new std::function<void(const QString& end)>;
  return function;
}

}  // namespace

TaskReport::TaskReport(QString task, QString socket_path)
    : task_(std::move(task)), socket_path_(std::move(socket_path)) {
  if (!socket_path_.isEmpty()) Answers::Get().Add(socket_path_);
}

TaskReport::~TaskReport() { Answers::Get().Remove(socket_path_); }

void TaskReport::Redirect(std::function<void(const QString& end)> function) {
  Redirection() = std::move(function);
}

void TaskReport::NoteAnswer(const QString& socket_path) { Answers::Get().Note(socket_path); }

void TaskReport::OnStart(int process) {
  process_ = process;
  RecordIfNamed({{QStringLiteral("task"), task_},
                 {QStringLiteral("event"), QStringLiteral("start")},
                 {QStringLiteral("pid"), process_}});
}

void TaskReport::OnEnd(int status, bool is_asked_for) {
  const bool is_killed = WIFSIGNALED(status);
  const int number = is_killed ? WTERMSIG(status) : WEXITSTATUS(status);
  RecordIfNamed({{QStringLiteral("task"), task_},
                 {QStringLiteral("event"), QStringLiteral("end")},
                 {QStringLiteral("pid"), process_},
                 {is_killed ? QStringLiteral("signal") : QStringLiteral("status"), number}});
  const bool is_mute = !socket_path_.isEmpty() && !Answers::Get().Has(socket_path_);
  if (is_asked_for) return;
  const QString end = is_killed ? QStringLiteral("was killed by signal %1")
                                : QStringLiteral("ended with status %1");
  Tell(end.arg(number) + (is_mute ? QStringLiteral(" before it answered a connection") : QString()),
       status != 0 || is_mute);
}

void TaskReport::OnLoss(const QString& cause) {
  RecordIfNamed({{QStringLiteral("task"), task_},
                 {QStringLiteral("event"), QStringLiteral("loss")},
                 {QStringLiteral("pid"), process_},
                 {QStringLiteral("cause"), cause}});
  Tell(QStringLiteral("is lost: ") + cause, true);
}

void TaskReport::Tell(const QString& text, bool is_told) const {
  const QString end = QStringLiteral("task \"%1\" (pid %2) %3").arg(task_).arg(process_).arg(text);
  if (Redirection()) return Redirection()(end);
  if (is_told) ReportError(end);
}

}  // namespace desk
