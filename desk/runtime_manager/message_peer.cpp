#include "desk/runtime_manager/message_peer.h"

#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>

#include <QJsonDocument>
#include <QPointer>

namespace desk {
namespace {

constexpr qint64 kReadBuffer = qint64{1} << 20;

bool IsOwnUser(qintptr descriptor) {
  ucred peer{};
  socklen_t size = sizeof peer;
  return getsockopt(static_cast<int>(descriptor), SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 &&
         peer.uid == geteuid();
}

}  // namespace

void Complain(const QString& text) {
  std::fprintf(stderr, "tavo-desk: %s\n", text.toLocal8Bit().constData());
}

MessagePeer::MessagePeer(const QString& socket_path, QObject* parent) : QObject(parent) {
  Watch();
  socket_.connectToServer(socket_path);
}

MessagePeer::MessagePeer(qintptr descriptor, QObject* parent) : QObject(parent) {
  Watch();
  if (socket_.setSocketDescriptor(descriptor)) {
    OnConnected();
  } else {
    ::close(static_cast<int>(descriptor));
    OnClosed();
  }
}

MessagePeer::~MessagePeer() { socket_.disconnect(this); }

void MessagePeer::Watch() {
  socket_.setReadBufferSize(kReadBuffer);  // What is not read yet waits at the sender's.
  connect(&socket_, &QLocalSocket::connected, this, &MessagePeer::OnConnected);
  connect(&socket_, &QLocalSocket::readyRead, this, &MessagePeer::OnReadable);
  connect(&socket_, &QLocalSocket::disconnected, this, &MessagePeer::OnClosed);
  connect(&socket_, &QLocalSocket::errorOccurred, this, [this](QLocalSocket::LocalSocketError) {
    if (ready_ || closed_) return;  // The end of a connection is told by itself.
    Complain(QStringLiteral("no connection: ") + socket_.errorString());
    OnClosed();
  });
}

void MessagePeer::OnConnected() {
  if (ready_ || closed_) return;
  if (!IsOwnUser(socket_.socketDescriptor())) {
    return Drop(QStringLiteral("the other end is another user's"));
  }
  ready_ = true;
  Q_EMIT connected();
}

void MessagePeer::Send(const QByteArray& line) {
  if (closed_) return;
  if (socket_.bytesToWrite() + line.size() > kMostUnsent) {
    return Drop(QStringLiteral("the other end does not read: %1 bytes are unsent")
                    .arg(socket_.bytesToWrite() + line.size()));
  }
  socket_.write(line);
  socket_.flush();
}

void MessagePeer::Drop(const QString& reason) {
  Complain(QStringLiteral("connection dropped: ") + reason);
  OnClosed();
}

void MessagePeer::OnReadable() {
  const QPointer<MessagePeer> self(this);
  do {
    received_ += socket_.readAll();
    for (QByteArray line; self && !closed_ && TakeLine(&line);) Deliver(line);
    if (!self || closed_) return;
    if (received_.size() > kLargestFrame) {
      return Drop(QStringLiteral("a line of more than %1 bytes").arg(kLargestFrame));
    }
  } while (socket_.bytesAvailable() > 0);
}

bool MessagePeer::TakeLine(QByteArray* line) {
  const int newline = received_.indexOf('\n', searched_);
  if (newline < 0) {
    received_.remove(0, line_start_);
    line_start_ = 0;
    searched_ = received_.size();
    return false;
  }
  *line = received_.mid(line_start_, newline - line_start_);
  line_start_ = searched_ = newline + 1;
  return true;
}

void MessagePeer::Deliver(const QByteArray& line) {
  if (line.size() > kLargestFrame) {
    return Drop(QStringLiteral("a line of more than %1 bytes").arg(kLargestFrame));
  }
  QJsonParseError error{};
  const QJsonDocument document = QJsonDocument::fromJson(line, &error);
  if (document.isObject()) {
    Q_EMIT messageReceived(document.object());
  } else {
    Complain(QStringLiteral("a line is no JSON object: ") +
             (document.isNull() ? error.errorString() : QStringLiteral("it is an array")));
  }
}

void MessagePeer::OnClosed() {
  if (closed_) return;
  closed_ = true;
  ready_ = false;
  socket_.abort();
  Q_EMIT closed();
  deleteLater();
}

}  // namespace desk
