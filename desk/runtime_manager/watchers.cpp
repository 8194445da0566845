#include "desk/runtime_manager/watchers.h"

#include <sys/inotify.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <functional>
#include <map>
#include <mutex>
#include <utility>
#include <vector>

#include <QCoreApplication>
#include <QPointer>
#include <QThread>

#include "desk/common/transfer.h"
#include "desk/common/unix_socket.h"
#include "desk/runtime_manager/read_notifier.h"
#include "desk/runtime_manager/record_entry.h"
#include "desk/runtime_manager/socket_directory.h"
#include "desk/runtime_manager/socket_files.h"

namespace desk {
namespace {

constexpr size_t kMaxWatchers = 16;

// In bytes. The kernel doubles both, and usually allows no more than the second one.
constexpr int kSendBuffer = 192 << 10;
constexpr int kLastBuffer = 208 << 10;  // There is room for the last word when the first is full.

// A connected socket of one watcher.
class Watcher {
 public:
  explicit Watcher(QByteArray path)
      : path_(std::move(path)),
        descriptor_(
            AboveStandard(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0))) {
    if (descriptor_ < 0) return;
    setsockopt(descriptor_, SOL_SOCKET, SO_SNDBUF, &kSendBuffer, sizeof kSendBuffer);
    if (!ConnectTo(descriptor_, path_) || !IsOwnUser(descriptor_)) Close();
  }
  Watcher(Watcher&& other) noexcept
      : path_(std::move(other.path_)),
        descriptor_(std::exchange(other.descriptor_, -1)),
        dropped_(other.dropped_) {}
  Watcher& operator=(Watcher&& other) noexcept {
    std::swap(path_, other.path_);
    std::swap(descriptor_, other.descriptor_);
    std::swap(dropped_, other.dropped_);
    return *this;
  }
  ~Watcher() { Close(); }

  bool IsConnected() const { return descriptor_ >= 0; }
  const QByteArray& GetPath() const { return path_; }

  void Tell(const QByteArray& entry) {
    TellDropped();
    if (dropped_ > 0 || !Send(entry)) ++dropped_;
  }

  // For a watcher of which this process takes its leave.
  void TellLast() {
    if (dropped_ == 0 || !IsConnected()) return;
    setsockopt(descriptor_, SOL_SOCKET, SO_SNDBUF, &kLastBuffer, sizeof kLastBuffer);
    TellDropped();
  }

 private:
  void TellDropped() {
    if (dropped_ > 0 && Send(MakeEntry({{QStringLiteral("event"), QStringLiteral("dropped")},
                                        {QStringLiteral("count"), dropped_},
                                        {QStringLiteral("pid"), getpid()}}))) {
      dropped_ = 0;
    }
  }

  // Returns false when the watcher has no room, or is gone.
  bool Send(const QByteArray& entry) {
    const auto size = static_cast<size_t>(entry.size());
    if (send(descriptor_, entry.constData(), size, MSG_DONTWAIT | MSG_NOSIGNAL) >= 0) return true;
    if (!IsTransient(errno) && errno != EMSGSIZE) Close();
    return false;
  }

  void Close() {
    if (descriptor_ >= 0) close(std::exchange(descriptor_, -1));
  }

  QByteArray path_;
  int descriptor_ = -1;  // Negative: the watcher is gone.
  qint64 dropped_ = 0;   // Entries since the last one that was sent.
};

// Calls `changed` when a watcher has come to the directory, or has left it.
class DirectoryNotifier : public QObject {
 public:
  DirectoryNotifier(const QByteArray& directory, std::function<void()> changed, QObject* parent)
      : QObject(parent),
        descriptor_(AboveStandard(inotify_init1(IN_CLOEXEC | IN_NONBLOCK))),
        changed_(std::move(changed)) {
    constexpr uint32_t kChanges = IN_MOVED_TO | IN_DELETE | IN_ONLYDIR;
    if (inotify_add_watch(descriptor_, directory.constData(), kChanges) < 0) return;
    readable_ = new ReadNotifier(descriptor_, this);
    connect(readable_, &ReadNotifier::activated, this, [this] { OnReadable(); });
  }
  ~DirectoryNotifier() override {
    delete readable_;  // Before the descriptor that it watches is closed.
    if (descriptor_ >= 0) close(descriptor_);
  }

  bool IsActive() const { return readable_ != nullptr; }

 private:
  void OnReadable() {
    if (getpid() != owner_) return readable_->SetEnabled(false);  // The news are the parent's.
    alignas(inotify_event) char news[4096];
    while (read(descriptor_, news, sizeof news) > 0) {
    }
    changed_();
  }

  const pid_t owner_ = getpid();
  const int descriptor_;
  const std::function<void()> changed_;
  ReadNotifier* readable_ = nullptr;
};

// The watchers of this process. Never destroyed: tasks may end while the process exits.
class Watchers {
 public:
  static Watchers& Get() {
    static auto& watchers = *new Watchers;
    return watchers;
  }

  // The key is the identity of a Watchable.
  void Enter(const void* key, QJsonObject introduction) {
    pid_t nobody = 0;
    owner_.compare_exchange_strong(nobody, getpid());
    if (IsForked()) return;
    const std::lock_guard lock(mutex_);
    if (introductions_.empty()) Open();
    if (!notifier_) {
      Watch();
      Scan();
    }
    introductions_.emplace(key, std::move(introduction));
  }

  void Leave(const void* key) {
    if (IsForked()) return;
    const std::lock_guard lock(mutex_);
    if (introductions_.erase(key) != 0 && introductions_.empty()) Close();
  }

  void Tell(const QByteArray& entry) {
    if (IsForked()) return;
    const std::lock_guard lock(mutex_);
    for (Watcher& watcher : watchers_) watcher.Tell(entry);
    Tidy();
  }

 private:
  // Another thread may have held the mutex when the process was forked.
  bool IsForked() const { return owner_ != getpid(); }

  // The functions below need the mutex.

  void Open() {
    QString error;  // Nobody has asked to be watched, so it is not told.
    directory_ = GetWatchDirectory();
    if (!MakePrivateDirectory(GetSharedDirectory(), &error) ||
        !MakePrivateDirectory(directory_, &error)) {
      directory_.clear();
    }
  }

  void Close() {
    directory_.clear();
    for (Watcher& watcher : watchers_) watcher.TellLast();
    watchers_.clear();
    Tidy();
    DirectoryNotifier* const notifier = std::exchange(notifier_, nullptr);
    if (!notifier) return;
    notifier->thread() == QThread::currentThread() ? delete notifier : notifier->deleteLater();
  }

  // The notifier belongs to the application, and lives on its thread.
  void Watch() {
    QCoreApplication* const application = QCoreApplication::instance();
    if (!application || directory_.isEmpty()) return;
    if (application->thread() == QThread::currentThread()) return MakeNotifier(application);
    QMetaObject::invokeMethod(
        application,
        [this, application] {
          const std::lock_guard lock(mutex_);
          if (notifier_ || directory_.isEmpty()) return;
          MakeNotifier(application);
          Scan();
        },
        Qt::QueuedConnection);
  }

  // A process may have too few inotify instances. Each later Enter looks for watchers then.
  void MakeNotifier(QCoreApplication* application) {
    const auto changed = [this] {
      const std::lock_guard lock(mutex_);
      Scan();
    };
    notifier_ = new DirectoryNotifier(directory_, changed, application);
    if (!notifier_->IsActive()) delete std::exchange(notifier_, nullptr);
  }

  // Connects to the watchers that have come, and forgets those that have left.
  void Scan() {
    std::vector<QByteArray> paths;
    const auto add = [](void* context, const char* path, const timespec&) {
      const QByteArray found(path);
      if (found[found.lastIndexOf('/') + 1] == '.') return;
      static_cast<std::vector<QByteArray>*>(context)->push_back(found);
    };
    if (directory_.isEmpty() || CheckPrivateDirectory(directory_.constData()) != 0 ||
        SweepSockets(directory_.constData(), add, &paths) != 0) {
      return;  // Those that are known stay.
    }
    const auto has_left = [&](const Watcher& watcher) {
      return std::find(paths.begin(), paths.end(), watcher.GetPath()) == paths.end();
    };
    watchers_.erase(std::remove_if(watchers_.begin(), watchers_.end(), has_left), watchers_.end());
    for (const QByteArray& path : paths) Connect(path);
    Tidy();
  }

  void Connect(const QByteArray& path) {
    const auto is_known = [&](const Watcher& watcher) { return watcher.GetPath() == path; };
    if (watchers_.size() == kMaxWatchers ||
        std::any_of(watchers_.begin(), watchers_.end(), is_known)) {
      return;
    }
    Watcher watcher(path);
    for (const auto& [key, introduction] : introductions_) {
      if (watcher.IsConnected() && !introduction.isEmpty()) watcher.Tell(MakeEntry(introduction));
    }
    watchers_.push_back(std::move(watcher));
  }

  void Tidy() {
    const auto is_gone = [](const Watcher& watcher) { return !watcher.IsConnected(); };
    watchers_.erase(std::remove_if(watchers_.begin(), watchers_.end(), is_gone), watchers_.end());
    watchers::are_there = !watchers_.empty();
  }

  std::atomic<pid_t> owner_{0};  // The first process; 0: none has had anything to watch.
  std::mutex mutex_;
  // Guarded by mutex_.
  QByteArray directory_;  // Empty: it cannot be used, or there is nothing to watch.
  std::map<const void*, QJsonObject> introductions_;
  std::vector<Watcher> watchers_;
  QPointer<DirectoryNotifier> notifier_;
};

}  // namespace

std::atomic<bool> watchers::are_there{false};

QByteArray GetWatchDirectory() { return GetSharedDirectory() + "/watch"; }

void watchers::Tell(const QByteArray& entry) { Watchers::Get().Tell(entry); }

Watchable::Watchable(QJsonObject introduction) {
  Watchers::Get().Enter(this, std::move(introduction));
}

Watchable::~Watchable() { Watchers::Get().Leave(this); }

}  // namespace desk
