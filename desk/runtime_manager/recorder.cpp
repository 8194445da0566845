#include "desk/runtime_manager/recorder.h"

#include <fcntl.h>
#include <unistd.h>

#include <QDateTime>
#include <QFile>
#include <QJsonDocument>

#include "desk/runtime_manager/message_peer.h"
#include "desk/runtime_manager/socket_files.h"

namespace desk {

bool Record(QJsonObject entry, QString* error) {
  entry.insert(QStringLiteral("time"), QDateTime::currentDateTimeUtc().toString(Qt::ISODateWithMs));
  const QByteArray line = QJsonDocument(entry).toJson(QJsonDocument::Compact);
  const QString path = QFile::decodeName(qgetenv("TAVO_DESK_RECORD"));
  if (path.isEmpty()) {
    Complain(QString::fromUtf8(line));
    return true;
  }
  // One write a line, so that those of several processes stay whole. What is recorded may be
  // secret.
  const int descriptor =
      open(QFile::encodeName(path).constData(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
  const QByteArray whole = line + '\n';
  const ssize_t written = write(descriptor, whole.constData(), static_cast<size_t>(whole.size()));
  if (written != whole.size()) *error = QStringLiteral("%1: %2").arg(path, ErrnoText());
  if (descriptor >= 0) close(descriptor);
  return written == whole.size();
}

}  // namespace desk
