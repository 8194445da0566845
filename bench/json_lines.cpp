#include "bench/json_lines.h"

#include <utility>

#include <QJsonDocument>
#include <QJsonObject>

namespace bench {

JsonLines::JsonLines(int descriptor, std::function<void(const QByteArray&)> receive) {
  QObject::connect(&socket_, &QLocalSocket::readyRead, [this, receive = std::move(receive)] {
    while (socket_.canReadLine()) receive(FromLine(socket_.readLine()));
  });
  socket_.setSocketDescriptor(descriptor);
}

void JsonLines::Send(const QByteArray& payload) {
  socket_.write(ToLine(payload));
  socket_.flush();
}

void JsonLines::OnEnd(std::function<void()> action) {
  QObject::connect(&socket_, &QLocalSocket::disconnected, std::move(action));
}

QByteArray JsonLines::ToLine(const QByteArray& payload) {
  const QJsonObject message{{QStringLiteral("data"), QString::fromLatin1(payload.toBase64())}};
  return QJsonDocument(message).toJson(QJsonDocument::Compact) + '\n';
}

QByteArray JsonLines::FromLine(const QByteArray& line) {
  const QJsonObject message = QJsonDocument::fromJson(line).object();
  return QByteArray::fromBase64(message.value(QStringLiteral("data")).toString().toLatin1());
}

}  // namespace bench
