// The file that TAVO_DESK_RECORD names: what happened on the desk, one JSON object a line.
//
// Threads: any, and any number of processes; a FrameRecorder is its owner's.
#pragma once

#include <memory>

#include <QJsonObject>
#include <QString>

namespace desk {

// Appends the entry, with its time, to the file; a line on standard error when none is named.
// False, with the cause in `error`, when the file cannot be written.
bool Record(QJsonObject entry, QString* error);

// The same, but nothing without a named file. A failure is a line on standard error.
void RecordIfNamed(QJsonObject entry);

// Appends what goes over a task's socket, as its starter sees it.
class FrameRecorder {
 public:
  // Null when no file is named. The task is that of the socket.
  static std::unique_ptr<FrameRecorder> Create(const QString& socket_path);

  void RecordTo(const QJsonObject& message) { Append(QStringLiteral("to"), message); }
  void RecordFrom(const QJsonObject& message) { Append(QStringLiteral("from"), message); }

 private:
  FrameRecorder(QString path, QString task);
  void Append(const QString& direction, const QJsonObject& message);

  QString path_;  // Empty once it could not be written, which is told once.
  const QString task_;
};

}  // namespace desk
