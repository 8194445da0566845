#include "desk/runtime_manager/record_entry.h"

#include <chrono>

#include <QDateTime>
#include <QJsonDocument>

namespace desk {

QByteArray MakeTimeMembers() {
  using std::chrono::microseconds;
  const auto monotonic = std::chrono::duration_cast<microseconds>(
      std::chrono::steady_clock::now().time_since_epoch());  // CLOCK_MONOTONIC on Linux.
  return "\"monotonic\":" + QByteArray::number(qint64{monotonic.count()}) + ",\"time\":\"" +
         QDateTime::currentDateTimeUtc().toString(Qt::ISODateWithMs).toLatin1() + '"';
}

QByteArray MakeEntry(const QJsonObject& members) {
  QByteArray entry = QJsonDocument(members).toJson(QJsonDocument::Compact);
  entry.chop(1);
  if (!members.isEmpty()) entry += ',';
  return entry + MakeTimeMembers() + '}';
}

}  // namespace desk
