#include "bench/lines.h"

#include <utility>

#include <QJsonDocument>
#include <QJsonObject>

namespace bench {

Lines::Lines(int descriptor, std::function<void(const QByteArray&)> receive) {
  QObject::connect(&socket_, &QLocalSocket::readyRead, [this, receive = std::move(receive)] {
    while (socket_.canReadLine()) receive(socket_.readLine());
  });
  socket_.setSocketDescriptor(descriptor);
}

void Lines::Send(const QByteArray& line) {
  socket_.write(line);
  socket_.flush();
}

void Lines::OnEnd(std::function<void()> action) {
  QObject::connect(&socket_, &QLocalSocket::disconnected, std::move(action));
}

QByteArray ToJsonLine(const QByteArray& payload) {
  const QJsonObject message{{QStringLiteral("data"), QString::fromLatin1(payload.toBase64())}};
  return QJsonDocument(message).toJson(QJsonDocument::Compact) + '\n';
}

QByteArray FromJsonLine(const QByteArray& line) {
  const QJsonObject message = QJsonDocument::fromJson(line).object();
  return QByteArray::fromBase64(message.value(QStringLiteral("data")).toString().toLatin1());
}

}  // namespace bench
