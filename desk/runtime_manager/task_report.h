// What a person is told of a task's life: a line on standard error when it ends in a way that
// nobody asked for, and entries of the record (recorder.h) for its start and its end.
//
// Threads: a report is its task's; NoteAnswer may be called from any.
#pragma once

#include <QString>

namespace desk {

class TaskReport {
 public:
  // `socket_path` is empty for a task without a socket.
  TaskReport(QString task, QString socket_path);
  ~TaskReport();
  TaskReport(const TaskReport&) = delete;
  TaskReport& operator=(const TaskReport&) = delete;

  // The task of this process that has the socket, if any, has accepted a connection.
  static void NoteAnswer(const QString& socket_path);

  void OnStart(int process);
  // `status` is that of waitpid; `is_asked_for` when the starter has stopped the task.
  void OnEnd(int status, bool is_asked_for);
  // Nobody saw the task's end.
  void OnLoss(const QString& cause);

 private:
  void Tell(const QString& text) const;

  const QString task_;
  const QString socket_path_;
  int process_ = 0;
};

}  // namespace desk
