#include "desk/runtime_manager/recorder.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include <QDateTime>
#include <QFile>
#include <QJsonDocument>

#include "desk/runtime_manager/message_peer.h"
#include "desk/runtime_manager/socket_files.h"
#include "desk/runtime_manager/task_socket.h"

namespace desk {
namespace {

QString GetRecordPath() { return QFile::decodeName(qgetenv("TAVO_DESK_RECORD")); }

QByteArray LineOf(QJsonObject entry) {
  entry.insert(QStringLiteral("time"), QDateTime::currentDateTimeUtc().toString(Qt::ISODateWithMs));
  return QJsonDocument(entry).toJson(QJsonDocument::Compact);
}

// One write a line, so that those of several processes stay whole. What is recorded may be secret.
bool AppendLine(const QString& path, const QByteArray& line, QString* error) {
  const int descriptor =
      open(QFile::encodeName(path).constData(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
  const QByteArray whole = line + '\n';
  ssize_t written = -1;
  do {
    if (descriptor < 0) break;
    written = write(descriptor, whole.constData(), static_cast<size_t>(whole.size()));
  } while (written < 0 && errno == EINTR);
  const bool is_whole = written == whole.size();
  if (written >= 0 && !is_whole) errno = ENOSPC;  // A part was written: there is no room.
  if (!is_whole) *error = QStringLiteral("%1: %2").arg(path, ErrnoText());
  if (descriptor >= 0) close(descriptor);
  return is_whole;
}

}  // namespace

bool Record(QJsonObject entry, QString* error) {
  const QByteArray line = LineOf(std::move(entry));
  const QString path = GetRecordPath();
  if (!path.isEmpty()) return AppendLine(path, line, error);
  Complain(QString::fromUtf8(line));
  return true;
}

FrameRecorder::FrameRecorder(QString path, QString task)
    : path_(std::move(path)), task_(std::move(task)) {}

std::unique_ptr<FrameRecorder> FrameRecorder::Create(const QString& socket_path) {
  QString path = GetRecordPath();
  if (path.isEmpty()) return nullptr;
  return std::unique_ptr<FrameRecorder>(
      new FrameRecorder(std::move(path), TaskSocket::GetTask(socket_path)));
}

void FrameRecorder::Append(const QString& direction, const QJsonObject& message) {
  if (path_.isEmpty()) return;
  QString error;
  const bool appended = AppendLine(path_,
                                   LineOf({{QStringLiteral("task"), task_},
                                           {QStringLiteral("direction"), direction},
                                           {QStringLiteral("message"), message}}),
                                   &error);
  if (appended) return;
  Complain(QStringLiteral("nothing more is recorded: ") + error);
  path_.clear();
}

}  // namespace desk
