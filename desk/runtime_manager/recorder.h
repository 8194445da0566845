// The record of the desk's events in the file TAVO_DESK_RECORD: one JSON object on each line.
//
// Threads: any, and any number of processes. A FrameRecorder is for its owner's thread.
#pragma once

#include <memory>

#include <QJsonObject>
#include <QString>

namespace desk {

// Appends the entry, with its time, to the file. False, with the cause in `error`, when the file
// cannot be written. Without a named file the entry is a line on standard error.
bool Record(QJsonObject entry, QString* error);

// The same, but does nothing without a named file. A failure is a line on standard error.
void RecordIfNamed(QJsonObject entry);

// Appends the messages on a task's socket, as its starter sees them.
class FrameRecorder {
 public:
  // Makes the recorder of the task of this socket. Null when no file is named.
  static std::unique_ptr<FrameRecorder> Create(const QString& socket_path);

  void RecordTo(const QJsonObject& message) { Append(QStringLiteral("to"), message); }
  void RecordFrom(const QJsonObject& message) { Append(QStringLiteral("from"), message); }

 private:
  FrameRecorder(QString path, QString task);
  void Append(const QString& direction, const QJsonObject& message);

  QString path_;  // Empty after a failure, which is reported once.
  const QString task_;
};

}  // namespace desk
