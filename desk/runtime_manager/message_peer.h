// One connection that carries messages: in each direction, one compact JSON object on each line.
//
// A line has at most kLargestFrame bytes, and at most kMaxUnsent bytes wait for a peer that does
// not read; a peer that breaks a limit, or that is another user's process, is dropped with a line
// on standard error. A line that json_line.h refuses is reported there and skipped.
//
// A handler may send, run an event loop (the next messages come within it), drop the peer or
// delete it. Messages that a peer has sent before it closed are still delivered.
//
// Lines are written when they are sent. Only while more received lines wait for their handlers, and
// the last eight handlers took less than a millisecond each, the answers are held, so that they
// leave in one write. They leave after a millisecond, or as soon as the handler that runs then
// returns, runs an event loop, or calls exit().
//
// The class uses plain socket calls, not QLocalSocket. That one ignores SIGPIPE for the whole
// process (and does not notice when the host restores it), drops received data when a write fails,
// delivers nothing within a handler's event loop, and does not survive being deleted there.
#pragma once

#include <sys/types.h>

#include <deque>
#include <vector>

#include <QByteArray>
#include <QJsonObject>
#include <QObject>
#include <QSocketNotifier>
#include <QString>

#include "desk/runtime_manager/read_notifier.h"

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

  // Sends lines, each of which ends with a newline and is sendable. Does nothing unless connected.
  void Send(const QByteArray& line);
  void Send(const std::vector<QByteArray>& lines);

  void Drop(const QString& reason);

 Q_SIGNALS:
  void connected();
  // Emitted once, when the other end has sent something or has closed in order. A socket that is
  // never accepted is reset instead.
  void answered();
  void messageReceived(const QJsonObject& message);
  void closed();  // Emitted once; the peer deletes itself afterwards.

 private:
  class Delivery;

  void TryConnect(const QByteArray& path);
  void OnConnected();
  void Enqueue(const QByteArray& line);
  void WriteEnqueued();
  void WriteHeld();
  void WriteQueue();
  void DropQueue();
  void LeaveQueueToParent();
  void OnReadable();
  bool ReadSome();
  void DeliverLines();
  void PostDelivery();
  void customEvent(QEvent* event) override;
  bool FindNewline();
  bool TakeLine(QByteArray* line);  // The line points into received_.
  void DropDelivered();
  void Deliver(const QByteArray& line);
  void Close();

  pid_t owner_;  // The process whose lines are in the queue.
  int descriptor_ = -1;
  ReadNotifier* readable_ = nullptr;  // Children of the peer.
  QSocketNotifier* writable_ = nullptr;
  bool ready_ = false;
  bool closed_ = false;
  bool ended_ = false;  // The other end has stopped sending.
  bool answered_ = false;
  bool write_failed_ = false;     // The other end has stopped reading.
  bool delivery_posted_ = false;  // The event loop will call DeliverLines.

  std::deque<QByteArray> queue_;  // Lines; short ones are joined.
  int queue_offset_ = 0;          // Sent bytes of the first element.
  qint64 unsent_bytes_ = 0;
  bool holds_ = false;      // What is sent is held.
  int quick_handlers_ = 0;  // The number of quick handlers since a slow one.

  QByteArray received_;  // Lines from line_start_ on.
  int line_start_ = 0;
  int searched_ = 0;  // The first newline is newline_ or not before searched_.
  int newline_ = -1;  // Negative: not found yet.
};

}  // namespace desk
