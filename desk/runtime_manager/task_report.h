// The report of a task's life: a line on standard error when it ends unexpectedly, and entries of
// the record (recorder.h) for its start and its end.
//
// Threads: those of the task; the static functions may be called from any.
#pragma once

#include <functional>
#include <optional>

#include <QJsonObject>
#include <QString>

#include "desk/runtime_manager/watchers.h"

namespace desk {

class TaskReport {
 public:
  // `socket_path` is empty for a task without a socket.
  TaskReport(QString task, QString socket_path);
  ~TaskReport();
  TaskReport(const TaskReport&) = delete;
  TaskReport& operator=(const TaskReport&) = delete;

  // Tells the function of each task of this process that ends without having been stopped, in the
  // place of the line on standard error, and of each connection to a task that is lost. Empty: the
  // line again. To be called on the tasks' thread.
  static void Redirect(std::function<void(const QString& news, bool has_ended)> function);

  // Notes that the connection to the task with this socket is lost.
  static void NoteLostConnection(const QString& socket_path);

  // Notes that the task of this process with this socket, if any, has accepted a connection.
  static void NoteAnswer(const QString& socket_path);

  // Returns the process id of the task with this socket; 0 unless this process has started it.
  static int GetProcessId(const QString& socket_path);

  void OnStart(int process);
  // `status` is that of waitpid; `is_asked_for` is true when the starter has stopped the task.
  void OnEnd(int status, bool is_asked_for);
  // The task's end was not observed.
  void OnLoss(const QString& cause);

 private:
  QJsonObject MakeEvent(const char* event) const;

  // `is_told` says whether the end is worth a line on standard error.
  void Tell(const QString& text, bool is_told) const;

  const QString task_;
  const QString socket_path_;
  int process_ = 0;
  std::optional<Watchable> watchable_;  // While the task runs.
};

}  // namespace desk
