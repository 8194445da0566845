#include "desk/runtime_manager/intent_server.h"

#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <set>
#include <tuple>
#include <utility>
#include <vector>

#include <QCryptographicHash>

#include "desk/common/diagnostics.h"
#include "desk/common/transfer.h"
#include "desk/common/unix_socket.h"
#include "desk/runtime_manager/json_line.h"
#include "desk/runtime_manager/socket_directory.h"
#include "desk/runtime_manager/socket_files.h"

namespace desk {
namespace {

QByteArray ErrorLine(int code, const QString& message) {
  return MakeLine({{QStringLiteral("error"), QJsonObject{{QStringLiteral("code"), code},
                                                         {QStringLiteral("message"), message}}}});
}

// An intent's name may be any text, so the file's name has its digest.
QByteArray FileStem(const QString& name) {
  return QCryptographicHash::hash(name.toUtf8(), QCryptographicHash::Sha256).toHex().left(32) + '-';
}

QByteArray GetIntentDirectory() { return GetSharedDirectory() + "/intents"; }

// A connected socket; -1, with errno, on failure.
int Connect(const QByteArray& path) {
  const int descriptor =
      AboveStandard(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (descriptor < 0 || desk::ConnectTo(descriptor, path)) return descriptor;
  const int cause = errno;
  close(descriptor);
  errno = cause;
  return -1;
}

// The files of the intents that this process offers. They are removed even if the process calls
// exit without destroying the server. This object is never destroyed.
class OfferedFiles {
 public:
  static OfferedFiles& Get() {
    static auto& files = *new OfferedFiles;
    static const RemovalAtExit removal;
    return files;
  }

  void Add(const QByteArray& path) {
    const std::lock_guard lock(mutex_);
    paths_.insert(path);
    owner_ = getpid();
  }

  void Remove(const QByteArray& path) {
    unlink(path.constData());
    const std::lock_guard lock(mutex_);
    paths_.erase(path);
  }

 private:
  struct RemovalAtExit {
    ~RemovalAtExit() { Get().RemoveAll(); }
  };

  void RemoveAll() {
    const std::lock_guard lock(mutex_);
    if (owner_ != getpid()) return;  // A forked process ends.
    for (const QByteArray& path : paths_) unlink(path.constData());
    paths_.clear();
  }

  std::mutex mutex_;
  std::set<QByteArray> paths_;  // Guarded by mutex_.
  pid_t owner_ = 0;
};

// A socket of an application that offers an intent.
struct Offer {
  QByteArray path;
  timespec time;
};

bool IsNewer(const Offer& one, const Offer& other) {
  return std::tie(one.time.tv_sec, one.time.tv_nsec) >
         std::tie(other.time.tv_sec, other.time.tv_nsec);
}

// Finds the offers of the intent, newest first. False, with the cause in `error`, when they cannot
// be found out. Without a directory there are none.
bool FindOffers(const QString& name, std::vector<Offer>* offers, RuntimeManager::Error* error) {
  const QByteArray directory = GetIntentDirectory();
  const auto fail = [&](int fault, const QString& cause) {
    if (fault == ENOENT) return true;
    *error = {fault,
              QStringLiteral("it is unknown who offers the intent \"%1\": %2").arg(name, cause)};
    return false;
  };
  for (const QByteArray& needed : {GetSharedDirectory(), directory}) {
    const int fault = CheckPrivateDirectory(needed.constData());
    if (fault != 0) return fail(fault, PrivateDirectoryFault(needed, fault));
  }
  const auto add = [](void* context, const char* path, const timespec& time) {
    static_cast<std::vector<Offer>*>(context)->push_back({path, time});
  };
  const int fault = SweepSockets(directory.constData(), add, offers);
  if (fault != 0) return fail(fault, PrivateDirectoryFault(directory, fault));
  const QByteArray stem = directory + '/' + FileStem(name);
  offers->erase(std::remove_if(offers->begin(), offers->end(),
                               [&](const Offer& offer) { return !offer.path.startsWith(stem); }),
                offers->end());
  std::sort(offers->begin(), offers->end(), IsNewer);
  return true;
}

}  // namespace

struct IntentServer::Intent {
  Handler handler;
  QByteArray path;
  std::unique_ptr<Acceptor> acceptor;

  Intent(Handler run, QByteArray file, std::unique_ptr<Acceptor> listener)
      : handler(std::move(run)), path(std::move(file)), acceptor(std::move(listener)) {
    OfferedFiles::Get().Add(path);
  }
  ~Intent() { OfferedFiles::Get().Remove(path); }
  Intent(const Intent&) = delete;
  Intent& operator=(const Intent&) = delete;
};

// The shared state of an invocation's reply functions. Only the first answer counts; if there is
// none, an error is sent.
class IntentServer::Answer {
 public:
  Answer(std::shared_ptr<Home> home, MessagePeer* peer) : home_(std::move(home)), peer_(peer) {}
  ~Answer() {
    if (!sent_) Send(ErrorLine(EPIPE, QStringLiteral("the intent was not answered")));
  }

  void Send(const QByteArray& line) {
    if (sent_.exchange(true)) return;
    if (!IsSendable(line, QStringLiteral("answer to an intent"))) {
      return Post(ErrorLine(EMSGSIZE, QStringLiteral("the answer is too large")));
    }
    Post(line);
  }

 private:
  void Post(const QByteArray& line) {
    const std::lock_guard lock(home_->mutex);
    if (!home_->server) return;
    QMetaObject::invokeMethod(
        home_->server,
        [peer = peer_, line] {
          if (peer) peer->Send(line);
        },
        Qt::QueuedConnection);
  }

  const std::shared_ptr<Home> home_;
  const QPointer<MessagePeer> peer_;  // Used on the server's thread only.
  std::atomic<bool> sent_{false};
};

IntentServer::IntentServer(QObject* parent) : QObject(parent), home_(new Home{{}, this}) {}

IntentServer::~IntentServer() {
  {
    const std::lock_guard lock(home_->mutex);
    home_->server = nullptr;
  }
  const Intents withdrawn = std::exchange(intents_, {});  // Destroyed handlers may call this.
}

bool IntentServer::Register(const QString& name, Handler handler, QString* error) {
  const auto known = intents_.find(name);
  if (known != intents_.end()) {
    utimes(known->second.path.constData(), nullptr);  // It is the latest one again.
    std::swap(known->second.handler, handler);        // The old one is destroyed with the argument.
    return true;
  }
  const QByteArray directory = GetIntentDirectory();
  if (!MakePrivateDirectory(GetSharedDirectory(), error) ||
      !MakePrivateDirectory(directory, error)) {
    return false;
  }
  RemoveDeadIntents(GetSharedDirectory().constData());
  // A process that finds the file can connect, so the file gets its name when the socket listens.
  const QByteArray file = FileStem(name) + QByteArray::number(getpid());
  const QByteArray hidden = directory + "/." + file;
  const int listener = ListenAt(hidden, error);
  if (listener < 0) return false;
  auto acceptor =
      std::make_unique<Acceptor>(listener, [this](int descriptor) { Serve(descriptor); });
  const QByteArray path = directory + '/' + file;
  if (rename(hidden.constData(), path.constData()) != 0) {
    *error = ErrnoText();
    unlink(hidden.constData());
    return false;
  }
  intents_.try_emplace(name, std::move(handler), path, std::move(acceptor));
  return true;
}

int IntentServer::ConnectTo(const QString& name, RuntimeManager::Error* error) {
  std::vector<Offer> offers;
  if (!FindOffers(name, &offers, error)) return -1;
  for (const Offer& offer : offers) {
    const int descriptor = Connect(offer.path);
    if (descriptor >= 0) return descriptor;
    if (errno == ECONNREFUSED || errno == ENOENT) continue;  // It has ended since it was found.
    *error = {errno, QStringLiteral("the application that offers \"%1\" cannot be reached: %2")
                         .arg(name, ErrnoText())};
    return -1;
  }
  return -1;
}

void IntentServer::Serve(int descriptor) {
  auto* peer = new MessagePeer(this);
  connect(peer, &MessagePeer::messageReceived, this,
          [this, peer](const QJsonObject& request) { Handle(peer, request); });
  peer->TakeOver(descriptor);
}

void IntentServer::Handle(MessagePeer* peer, const QJsonObject& request) {
  const QString name = request.value(QStringLiteral("intent")).toString();
  const auto found = intents_.find(name);
  if (found == intents_.end()) {
    return peer->Send(ErrorLine(ENOENT, QStringLiteral("there is no intent \"%1\"").arg(name)));
  }
  const auto answer = std::make_shared<Answer>(home_, peer);
  const Handler handler = found->second.handler;  // It may replace itself.
  handler(request.value(QStringLiteral("parameters")).toObject(),
          [answer](const QJsonObject& object) {
            answer->Send(MakeLine({{QStringLiteral("answer"), object}}));
          });
}

}  // namespace desk
