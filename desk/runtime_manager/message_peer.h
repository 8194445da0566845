// One connection that carries messages: in each direction, one compact JSON object on each line.
//
// A line has at most kLargestFrame bytes, and at most kMaxUnsent bytes wait for a peer that does
// not read; a peer that breaks a limit, or that is another user's process, is dropped with a line
// on standard error. A line that json_line.h refuses is reported there and skipped.
//
// A handler may send, run an event loop (the next messages come within it), drop the peer or
// delete it. Messages that a peer has sent before it closed are still delivered.
//
// The class uses plain socket calls, not QLocalSocket. That one ignores SIGPIPE for the whole
// process (and does not notice when the host restores it), drops received data when a write fails,
// delivers nothing within a handler's event loop, and does not survive being deleted there.
#pragma once

#include <deque>

#include <QByteArray>
#include <QJsonObject>
#include <QObject>
#include <QSocketNotifier>
#include <QString>

namespace desk {

constexpr qint64 kLargestFrame = qint64{32} << 20;
constexpr qint64 kMaxUnsent = qint64{128} << 20;

// Returns whether the line, which ends with a newline, may be sent. If not, the dropped `what` is
// reported on standard error.
bool IsSendable(const QByteArray& line, const QString& what);

class MessagePeer : public QObject {
  Q_OBJECT

 public:
  explicit MessagePeer(QObject* parent);
  ~MessagePeer() override;

  // To be called once: connects to a socket, or takes a connected one over. May emit `connected`.
  void Connect(const QString& socket_path);
  void TakeOver(int descriptor);

  bool IsConnected() const { return ready_; }

  // Sends a line, which ends with a newline and is sendable. Does nothing unless connected.
  void Send(const QByteArray& line);

  void Drop(const QString& reason);

 Q_SIGNALS:
  void connected();
  // Emitted once, when the other end has sent something or has closed in order. A socket that is
  // never accepted is reset instead.
  void answered();
  void messageReceived(const QJsonObject& message);
  void closed();  // Emitted once; the peer deletes itself afterwards.

 private:
  void TryConnect(const QByteArray& path);
  void OnConnected();
  void WriteQueue();
  void DropQueue();
  void OnReadable();
  bool ReadSome();
  void DeliverLines();
  bool TakeLine(QByteArray* line);  // The line points into received_.
  void DropDelivered();
  void Deliver(const QByteArray& line);
  void Close();

  int descriptor_ = -1;
  QSocketNotifier* readable_ = nullptr;  // Children of the peer.
  QSocketNotifier* writable_ = nullptr;
  bool ready_ = false;
  bool closed_ = false;
  bool ended_ = false;  // The other end has stopped sending.
  bool answered_ = false;
  bool write_failed_ = false;     // The other end has stopped reading.
  bool delivery_posted_ = false;  // The event loop will call DeliverLines.

  std::deque<QByteArray> queue_;
  int queue_offset_ = 0;  // Sent bytes of the first line.
  qint64 unsent_bytes_ = 0;

  QByteArray received_;  // Lines from line_start_ on; has no newline before searched_.
  int line_start_ = 0;
  int searched_ = 0;
};

}  // namespace desk
