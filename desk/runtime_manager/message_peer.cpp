#include "desk/runtime_manager/message_peer.h"

#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <utility>

#include <QCoreApplication>
#include <QEvent>
#include <QFile>
#include <QPointer>
#include <QTimer>

#include "desk/common/diagnostics.h"
#include "desk/common/transfer.h"
#include "desk/common/unix_socket.h"
#include "desk/runtime_manager/heap.h"
#include "desk/runtime_manager/json_line.h"

namespace desk {
namespace {

constexpr int kReadBlock = 1 << 16;
constexpr int kMaxReadAtOnce = 1 << 20;  // Then the event loop handles other events.
constexpr int kMaxJoined = 1 << 16;      // Bytes of lines that are joined for one write.
constexpr auto kMaxHold = std::chrono::milliseconds(1);
constexpr int kManyQuick = 8;  // So many quick handlers in a row make answers wait for the next.
constexpr int kConnectRetryMs = 20;

using Clock = std::chrono::steady_clock;

}  // namespace

bool IsSendable(const QByteArray& line, const QString& what) {
  const qint64 size = line.size() - 1;
  if (size <= kLargestFrame) return true;
  ReportError(QStringLiteral("%1 dropped: it has %2 bytes, at most %3 are possible")
                  .arg(what)
                  .arg(size)
                  .arg(kLargestFrame));
  return false;
}

// Handlers of a peer run on this thread. If one of them calls exit(), what belongs to the thread is
// destroyed, the peers are not, and what these hold is written.
class MessagePeer::Delivery {
 public:
  explicit Delivery(MessagePeer* peer) { running_.peers.emplace_back(peer); }
  ~Delivery() { running_.peers.pop_back(); }
  Delivery(const Delivery&) = delete;
  Delivery& operator=(const Delivery&) = delete;

 private:
  struct Running {
    std::vector<QPointer<MessagePeer>> peers;

    ~Running() {
      for (const auto& peer : peers) {
        if (peer) peer->WriteHeld();
      }
    }
  };

  static thread_local Running running_;
};

thread_local MessagePeer::Delivery::Running MessagePeer::Delivery::running_;

MessagePeer::MessagePeer(QObject* parent) : QObject(parent), owner_(getpid()) { PrimeHeap(); }

MessagePeer::~MessagePeer() {
  WriteHeld();
  delete readable_;  // Before the descriptor that they watch is closed.
  delete writable_;
  if (descriptor_ >= 0) ::close(descriptor_);
  DropQueue();
}

void MessagePeer::Connect(const QString& socket_path) {
  const QByteArray path = QFile::encodeName(socket_path);
  descriptor_ = AboveStandard(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  TryConnect(path);
}

void MessagePeer::TryConnect(const QByteArray& path) {
  if (closed_) return;
  if (descriptor_ >= 0 && ConnectTo(descriptor_, path)) return OnConnected();
  const int error = errno;
  if (error == EAGAIN || error == EINTR) {  // Too many connections wait already.
    QTimer::singleShot(kConnectRetryMs, this, [this, path] { TryConnect(path); });
    return;
  }
  Drop(QStringLiteral("%1: %2").arg(QFile::decodeName(path), ErrnoText(error)));
}

void MessagePeer::TakeOver(int descriptor) {
  descriptor_ = descriptor;
  OnConnected();
}

void MessagePeer::OnConnected() {
  if (!IsOwnUser(descriptor_)) return Drop(QStringLiteral("the other end is another user's"));
  readable_ = new ReadNotifier(descriptor_, this);
  connect(readable_, &ReadNotifier::activated, this, [this] { OnReadable(); });
  writable_ = new QSocketNotifier(descriptor_, QSocketNotifier::Write, this);
  writable_->setEnabled(false);
  connect(writable_, &QSocketNotifier::activated, this, [this] {
    WriteQueue();
    if (ended_) DeliverLines();
  });
  ready_ = true;
  Q_EMIT connected();
}

void MessagePeer::Send(const QByteArray& line) {
  LeaveQueueToParent();
  if (!ready_ || write_failed_) return;
  Enqueue(line);
  WriteEnqueued();
}

void MessagePeer::Send(const std::vector<QByteArray>& lines) {
  LeaveQueueToParent();
  if (!ready_ || write_failed_) return;
  for (const QByteArray& line : lines) Enqueue(line);
  WriteEnqueued();
}

void MessagePeer::Enqueue(const QByteArray& line) {
  if (!queue_.empty() && queue_.back().size() + line.size() <= kMaxJoined) {
    queue_.back() += line;
  } else {
    queue_.push_back(line);
  }
  unsent_bytes_ += line.size();
}

void MessagePeer::WriteEnqueued() {
  if (!holds_ || unsent_bytes_ > kMaxJoined) WriteHeld();
  if (unsent_bytes_ > kMaxUnsent) {
    Drop(QStringLiteral("the other end does not read, %1 bytes are unsent").arg(unsent_bytes_));
  }
}

// Writes what does not wait for the other end to read.
void MessagePeer::WriteHeld() {
  LeaveQueueToParent();
  if (!queue_.empty() && !writable_->isEnabled()) WriteQueue();
}

void MessagePeer::WriteQueue() {
  while (!queue_.empty()) {
    const QByteArray& line = queue_.front();
    const ssize_t size =
        send(descriptor_, line.constData() + queue_offset_,
             static_cast<size_t>(line.size() - queue_offset_), MSG_NOSIGNAL | MSG_DONTWAIT);
    if (size < 0 && errno == EINTR) continue;
    if (size < 0) break;
    unsent_bytes_ -= size;
    queue_offset_ += static_cast<int>(size);
    if (queue_offset_ < line.size()) continue;
    queue_.pop_front();
    queue_offset_ = 0;
  }
  const bool waits = !queue_.empty() && IsTransient(errno);
  if (!queue_.empty() && !waits) {  // Its last messages are still to be read.
    write_failed_ = true;
    shutdown(descriptor_, SHUT_WR);  // The other end may wait for more.
    DropQueue();
  }
  writable_->setEnabled(waits);
}

// Drops accepted messages; the loss is reported.
void MessagePeer::DropQueue() {
  LeaveQueueToParent();
  if (unsent_bytes_ > 0) {
    ReportError(QStringLiteral("connection closed with %1 bytes unsent").arg(unsent_bytes_));
  }
  queue_.clear();
  unsent_bytes_ = 0;
}

// In a forked process the lines that were sent before are the parent's to write.
void MessagePeer::LeaveQueueToParent() {
  const pid_t process = getpid();
  if (std::exchange(owner_, process) == process) return;
  queue_.clear();
  queue_offset_ = 0;
  unsent_bytes_ = 0;
  holds_ = false;
}

void MessagePeer::Drop(const QString& reason) {
  if (closed_) return;
  ReportError(QStringLiteral("connection dropped: ") + reason);
  Close();
}

void MessagePeer::OnReadable() {
  for (int read = 0; read < kMaxReadAtOnce && ReadSome(); read += kReadBlock) {
  }
  DeliverLines();
}

// Returns false when there is nothing more to read now.
bool MessagePeer::ReadSome() {
  const int before = received_.size();
  received_.resize(before + kReadBlock);
  ssize_t size = 0;
  do {
    size = recv(descriptor_, received_.data() + before, kReadBlock, MSG_DONTWAIT);
  } while (size < 0 && errno == EINTR);
  const bool waits = size < 0 && IsTransient(errno);
  if (size >= 0 && !std::exchange(answered_, true)) Q_EMIT answered();
  received_.resize(before + (size > 0 ? static_cast<int>(size) : 0));
  if (size <= 0 && !waits) {
    ended_ = true;
    readable_->SetEnabled(false);
  }
  return size == kReadBlock;
}

void MessagePeer::DeliverLines() {
  const QPointer<MessagePeer> self(this);
  const Delivery delivery(this);
  WriteHeld();  // A handler may be running an event loop.
  auto begin = Clock::now();
  auto held_since = begin;
  for (QByteArray line; !closed_ && TakeLine(&line);) {
    const bool has_next = FindNewline();
    if (has_next) PostDelivery();
    holds_ = has_next && quick_handlers_ >= kManyQuick;
    Deliver(line);
    if (!self) return;
    const auto end = Clock::now();
    quick_handlers_ = end - begin < kMaxHold ? quick_handlers_ + 1 : 0;
    if (end - held_since >= kMaxHold) {
      WriteHeld();
      held_since = end;
    }
    begin = end;
  }
  holds_ = false;
  WriteHeld();
  if (closed_) return;
  if (received_.size() > kLargestFrame) {
    Drop(QStringLiteral("a line of more than %1 bytes").arg(kLargestFrame));
  } else if (ended_ && queue_.empty()) {  // An end that has stopped sending may still read.
    Close();
  }
}

// The next lines are delivered even if a handler runs an event loop.
void MessagePeer::PostDelivery() {
  if (std::exchange(delivery_posted_, true)) return;
  QCoreApplication::postEvent(this, new QEvent(QEvent::User), Qt::HighEventPriority);
}

void MessagePeer::customEvent(QEvent*) {
  delivery_posted_ = false;
  DeliverLines();
}

// Returns whether a whole line is there.
bool MessagePeer::FindNewline() {
  if (newline_ >= 0) return true;
  const auto size = static_cast<size_t>(received_.size() - searched_);
  const void* found = std::memchr(received_.constData() + searched_, '\n', size);
  searched_ = received_.size();
  if (found) newline_ = static_cast<int>(static_cast<const char*>(found) - received_.constData());
  return found != nullptr;
}

bool MessagePeer::TakeLine(QByteArray* line) {
  if (!FindNewline()) {
    DropDelivered();
    return false;
  }
  *line = QByteArray::fromRawData(received_.constData() + line_start_, newline_ - line_start_);
  line_start_ = searched_ = std::exchange(newline_, -1) + 1;
  return true;
}

// Makes room for the next read. The room is kept, except that of an unusually large line.
void MessagePeer::DropDelivered() {
  received_.remove(0, line_start_);
  line_start_ = 0;
  searched_ = received_.size();
  if (received_.isEmpty() && received_.capacity() > kMaxReadAtOnce) received_.clear();
  if (received_.capacity() < kReadBlock) received_.reserve(kReadBlock);
}

void MessagePeer::Deliver(const QByteArray& line) {
  if (line.size() > kLargestFrame) {
    return Drop(QStringLiteral("a line of more than %1 bytes").arg(kLargestFrame));
  }
  QString fault;
  const std::optional<QJsonObject> message = ParseLine(line, &fault);
  if (!message) return ReportError(fault);
  if (newline_ < 0) DropDelivered();  // A large line is not held beside its message.
  Q_EMIT messageReceived(*message);
}

void MessagePeer::Close() {
  WriteHeld();
  closed_ = true;
  ready_ = false;
  DropQueue();
  if (readable_) readable_->SetEnabled(false);
  if (writable_) writable_->setEnabled(false);
  if (descriptor_ >= 0) shutdown(descriptor_, SHUT_RDWR);
  Q_EMIT closed();
  deleteLater();
}

}  // namespace desk
