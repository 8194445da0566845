#include "platform/runtime_manager/task_messaging.h"

#include <fcntl.h>
#include <sys/socket.h>

#include <algorithm>
#include <mutex>
#include <optional>
#include <utility>
#include <vector>

#include <QThread>

#include "desk/common/diagnostics.h"
#include "desk/runtime_manager/acceptor.h"
#include "desk/runtime_manager/json_line.h"
#include "desk/runtime_manager/message_peer.h"
#include "desk/runtime_manager/recorder.h"
#include "desk/runtime_manager/task_report.h"

namespace RuntimeManager {
namespace {

bool IsListening(int descriptor) {
  int listening = 0;
  socklen_t size = sizeof listening;
  return getsockopt(descriptor, SOL_SOCKET, SO_ACCEPTCONN, &listening, &size) == 0 && listening;
}

}  // namespace

struct TaskMessaging::Private {
  TaskMessaging* const owner;

  // On the owner's thread only.
  std::vector<desk::MessagePeer*> peers;     // Children of the owner.
  bool waits_for_first_peer = true;          // Messages are kept until then.
  std::unique_ptr<desk::Acceptor> acceptor;  // Null at the starter's end.

  // Only the starter's end records, so that each frame is there once.
  std::optional<desk::FrameRecorder> recorder;
  QString socket_path;  // Of the task, at the starter's end.

  std::mutex mutex;
  // Guarded by mutex.
  std::vector<QByteArray> outbox;
  qint64 outbox_bytes = 0;
  bool overflowed = false;  // A message was not put into the outbox.
  bool useless = false;     // There is no peer, and there cannot be one.

  explicit Private(TaskMessaging* messaging) : owner(messaging) {}

  void ConnectTo(const QString& path) {
    socket_path = path;
    recorder.emplace(path, desk::TaskReport::GetProcessId(path));
    auto* peer = Add();
    QObject::connect(peer, &desk::MessagePeer::answered, owner,
                     [path] { desk::TaskReport::NoteAnswer(path); });
    peer->Connect(path);
  }

  void Serve(int descriptor) {
    if (!IsListening(descriptor)) {
      desk::ReportError(
          QStringLiteral("descriptor %1 is not a listening socket: the application was not "
                         "started as a task")
              .arg(descriptor));
      return GiveUp();
    }
    const int listener = fcntl(descriptor, F_DUPFD_CLOEXEC, 0);
    if (listener < 0) {
      desk::ReportError(QStringLiteral("nobody can be served: %1").arg(desk::ErrnoText()));
      return GiveUp();
    }
    acceptor = std::make_unique<desk::Acceptor>(
        listener, [this](int connection) { Add()->TakeOver(connection); });
  }

  desk::MessagePeer* Add() {
    auto* peer = new desk::MessagePeer(owner);
    peers.push_back(peer);
    QObject::connect(peer, &desk::MessagePeer::messageReceived, owner,
                     [this](const QJsonObject& message) { Receive(message); });
    QObject::connect(peer, &desk::MessagePeer::connected, owner, [this] { Flush(); });
    QObject::connect(peer, &desk::MessagePeer::closed, owner, [this, peer] { Remove(peer); });
    return peer;
  }

  // A receiver may answer, which is recorded afterwards, or delete the owner.
  void Receive(const QJsonObject& message) {
    if (IsRecorded()) recorder->RecordFrom(desk::MakeLine(message).chopped(1));
    Q_EMIT owner->messageReceived(message);
  }

  bool IsRecorded() const { return recorder && recorder->IsWanted(); }

  void Remove(desk::MessagePeer* peer) {
    peers.erase(std::remove(peers.begin(), peers.end(), peer), peers.end());
    if (acceptor) return;
    GiveUp();  // The starter's end does not connect again.
    desk::TaskReport::NoteLostConnection(socket_path);
  }

  void GiveUp() {
    const std::lock_guard lock(mutex);
    useless = true;
    outbox.clear();
    outbox_bytes = 0;
  }

  // Returns whether the owner's thread must be woken.
  bool Put(const QByteArray& line) {
    const std::lock_guard lock(mutex);
    if (useless || overflowed) return false;
    overflowed = outbox_bytes + line.size() > desk::kMaxUnsent;
    if (overflowed) return true;
    outbox.push_back(line);
    outbox_bytes += line.size();
    return outbox.size() == 1;
  }

  // Sends the waiting messages to every peer. On the owner's thread.
  void Flush() {
    const bool connected = std::any_of(peers.begin(), peers.end(),
                                       [](desk::MessagePeer* peer) { return peer->IsConnected(); });
    std::unique_lock lock(mutex);
    if (!connected && waits_for_first_peer && !overflowed) return;
    waits_for_first_peer = waits_for_first_peer && !connected;
    const auto lines = std::exchange(outbox, {});
    outbox_bytes = 0;
    const bool drop = std::exchange(overflowed, false);
    lock.unlock();
    if (IsRecorded()) {
      for (const QByteArray& line : lines) recorder->RecordTo(line.chopped(1));
    }
    const auto receivers = peers;  // Sending may drop a peer.
    for (desk::MessagePeer* peer : receivers) peer->Send(lines);
    if (drop) DropEverybody();
  }

  // A message did not reach the outbox, so every peer has missed it.
  void DropEverybody() {
    const auto everybody = peers;
    for (desk::MessagePeer* peer : everybody) {
      peer->Drop(QStringLiteral("too many messages wait to be sent"));
    }
    if (everybody.empty()) {
      desk::ReportError(QStringLiteral("messages dropped: nobody is there to read them"));
    }
  }
};

TaskMessaging::TaskMessaging(const QString& socket_path, QObject* parent)
    : QObject(parent), d_(new Private(this)) {
  d_->ConnectTo(socket_path);
}

TaskMessaging::TaskMessaging(int socket_descriptor, QObject* parent)
    : QObject(parent), d_(new Private(this)) {
  d_->Serve(socket_descriptor);
}

TaskMessaging::~TaskMessaging() = default;

void TaskMessaging::sendMessage(const QJsonObject& message) {
  const QByteArray line = desk::MakeLine(message);
  if (!desk::IsSendable(line, QStringLiteral("message"))) return;
  const bool news = d_->Put(line);
  if (QThread::currentThread() == thread()) {
    d_->Flush();
  } else if (news) {
    QMetaObject::invokeMethod(
        this, [this] { d_->Flush(); }, Qt::QueuedConnection);
  }
}

}  // namespace RuntimeManager
