// The record of the desk's events: one JSON object on each line of the file TAVO_DESK_RECORD, and
// the same objects for whoever watches (watchers.h).
//
// Threads: any, and any number of processes. A FrameRecorder is for its owner's thread.
#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QString>

#include "desk/runtime_manager/watchers.h"

namespace desk {

constexpr int kMaxWatchedMessage = 64 << 10;  // In bytes. Watchers get no larger one.

// Adds the entry, with its time. False, with the cause in `error`, when the file cannot be written.
// Without a named file the entry is a line on standard error.
bool Record(const QJsonObject& entry, QString* error);

// The same, but a file need not be named. A failure is a line on standard error.
void RecordIfWanted(const QJsonObject& entry);

// Records the messages on a task's socket, as its starter sees them.
class FrameRecorder {
 public:
  // `peer` is the process id of the task; 0: unknown.
  FrameRecorder(const QString& socket_path, int peer);

  // To be asked before each message: there is no other cost while nobody wants the record.
  bool IsWanted() const { return !path_.isEmpty() || watchers::AreThere(); }

  // A message is the text of a JSON object.
  void RecordTo(const QByteArray& message) { Append("to", message); }
  void RecordFrom(const QByteArray& message) { Append("from", message); }

 private:
  void Append(const char* direction, const QByteArray& message);
  void AppendToFile(const QByteArray& entry);

  const Watchable watchable_;
  QString path_;  // Empty: no file is named, or it failed, which is reported once.
  const QString task_;
  const QByteArray members_;  // Those that all entries share, without the closing brace.
};

}  // namespace desk
