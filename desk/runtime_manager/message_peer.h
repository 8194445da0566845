// One connection that carries messages: a compact JSON object a line, each way.
//
// A line has at most kLargestFrame bytes, and at most kMostUnsent bytes wait for a peer that does
// not read; a peer that breaks a limit, or that is another user's process, is dropped with a line
// on standard error. A line that is no JSON object is reported there and skipped. Messages come one
// after the other: while a handler runs an event loop of its own, the next ones wait.
#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QLocalSocket>
#include <QObject>

namespace desk {

constexpr qint64 kLargestFrame = qint64{64} << 20;
constexpr qint64 kMostUnsent = qint64{128} << 20;

// Writes a line to standard error.
void Complain(const QString& text);

class MessagePeer : public QObject {
  Q_OBJECT

 public:
  // Connects to a socket, or takes a connected one over.
  MessagePeer(const QString& socket_path, QObject* parent);
  MessagePeer(qintptr descriptor, QObject* parent);
  ~MessagePeer() override;

  bool IsConnected() const { return ready_; }
  bool IsClosed() const { return closed_; }

  // `line` ends with a newline. Only when connected.
  void Send(const QByteArray& line);

  void Drop(const QString& reason);

 Q_SIGNALS:
  void connected();
  void messageReceived(const QJsonObject& message);
  void closed();  // Once; the peer deletes itself afterwards.

 private:
  void Watch();
  void OnConnected();
  void OnReadable();
  void OnClosed();
  bool TakeLine(QByteArray* line);
  void Deliver(const QByteArray& line);

  QLocalSocket socket_;
  bool ready_ = false;
  bool closed_ = false;
  QByteArray received_;  // Lines from line_start_ on; searched for a newline up to searched_.
  int line_start_ = 0;
  int searched_ = 0;
};

}  // namespace desk
