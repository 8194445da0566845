#include "bench/lines.h"

#include <utility>

#include <QJsonDocument>
#include <QJsonObject>

namespace bench {

Lines::Lines(int descriptor, Framing framing, Receive receive) : receive_(std::move(receive)) {
  const auto read = framing == Framing::kCanReadLine ? &Lines::ReadLines : &Lines::ReadIntoBuffer;
  QObject::connect(&socket_, &QLocalSocket::readyRead, [this, read] { (this->*read)(); });
  socket_.setSocketDescriptor(descriptor);
}

void Lines::ReadLines() {
  while (socket_.canReadLine()) receive_(socket_.readLine());
}

void Lines::ReadIntoBuffer() {
  const int known = buffer_.size();
  buffer_ += socket_.readAll();
  int begin = 0;
  for (int end = buffer_.indexOf('\n', known); end >= 0; end = buffer_.indexOf('\n', begin)) {
    receive_(buffer_.mid(begin, end + 1 - begin));
    begin = end + 1;
  }
  buffer_.remove(0, begin);
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
