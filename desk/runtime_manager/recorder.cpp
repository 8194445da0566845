#include "desk/runtime_manager/recorder.h"

#include <QDateTime>
#include <QFile>
#include <QJsonDocument>

#include "desk/runtime_manager/message_peer.h"

namespace desk {

bool Record(QJsonObject entry, QString* error) {
  entry.insert(QStringLiteral("time"), QDateTime::currentDateTimeUtc().toString(Qt::ISODateWithMs));
  const QByteArray line = QJsonDocument(entry).toJson(QJsonDocument::Compact);
  const QString path = QFile::decodeName(qgetenv("TAVO_DESK_RECORD"));
  if (path.isEmpty()) {
    Complain(QString::fromUtf8(line));
    return true;
  }
  QFile file(path);  // Unbuffered: one write a line, so that those of several processes stay whole.
  if (file.open(QIODevice::Append | QIODevice::Unbuffered) &&
      file.write(line + '\n') > line.size()) {
    return true;
  }
  *error = QStringLiteral("%1: %2").arg(path, file.errorString());
  return false;
}

}  // namespace desk
