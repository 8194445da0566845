// One connection that carries messages: a compact JSON object a line, each way.
//
// A line has at most kLargestFrame bytes, and at most kMostUnsent bytes wait for a peer that does
// not read; a peer that breaks a limit, or that is another user's process, is dropped with a line
// on standard error. A line that json_line.h refuses is reported there and skipped.
//
// A handler may send, run an event loop (the next messages come within it), drop the peer or
// delete it. What a peer sent before it closed is still delivered.
//
// Plain socket calls rather than QLocalSocket: that one ignores SIGPIPE for the whole process (and
// does not notice when somebody restores it), throws received data away when a write fails, stays
// silent within a handler's event loop, and does not survive being deleted there.
#pragma once

#include <deque>

#include <QByteArray>
#include <QJsonObject>
#include <QObject>
#include <QSocketNotifier>
#include <QString>

namespace desk {

constexpr qint64 kLargestFrame = qint64{32} << 20;
constexpr qint64 kMostUnsent = qint64{128} << 20;

// Whether the line, which ends with a newline, may be sent; if not, the dropped `what` is told on
// standard error.
bool IsSendable(const QByteArray& line, const QString& what);

class MessagePeer : public QObject {
  Q_OBJECT

 public:
  explicit MessagePeer(QObject* parent);
  ~MessagePeer() override;

  // Once: connects to a socket, or takes a connected one over. `connected` may come within.
  void Connect(const QString& socket_path);
  void TakeOver(int descriptor);

  bool IsConnected() const { return ready_; }

  // `line` ends with a newline and is sendable. Nothing happens unless connected.
  void Send(const QByteArray& line);

  void Drop(const QString& reason);

 Q_SIGNALS:
  void connected();
  // Once: something came from the other end, or its orderly end. A socket that nobody accepts is
  // reset instead.
  void answered();
  void messageReceived(const QJsonObject& message);
  void closed();  // Once; the peer deletes itself afterwards.

 private:
  void TryConnect(const QByteArray& path);
  void OnConnected();
  void WriteQueue();
  void DropQueue();
  void OnReadable();
  bool ReadSome();
  void DeliverLines();
  bool TakeLine(QByteArray* line);  // It borrows from received_: parse it first of all.
  void DropDelivered();
  void Deliver(const QByteArray& line);
  void Close();

  int descriptor_ = -1;
  QSocketNotifier* readable_ = nullptr;  // Children of the peer.
  QSocketNotifier* writable_ = nullptr;
  bool ready_ = false;
  bool closed_ = false;
  bool ended_ = false;  // The other end sends no more.
  bool answered_ = false;
  bool write_failed_ = false;     // It reads no more.
  bool delivery_posted_ = false;  // Lines that wait are looked at by the next event loop, too.

  std::deque<QByteArray> queue_;
  int queue_offset_ = 0;  // Bytes of the first line that are sent.
  qint64 unsent_bytes_ = 0;

  QByteArray received_;  // Lines from line_start_ on; searched for a newline up to searched_.
  int line_start_ = 0;
  int searched_ = 0;
};

}  // namespace desk
