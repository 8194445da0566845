#include "desk/runtime_manager/task_socket.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>

#include <QDir>
#include <QFile>

namespace desk {
namespace {

constexpr int kLongestPath = sizeof(sockaddr_un::sun_path) - 1;

QString ErrnoText() { return QString::fromLocal8Bit(std::strerror(errno)); }

// Only a directory that nobody else can reach will do.
bool IsPrivateDirectory(const QByteArray& path) {
  struct stat status {};
  return lstat(path.constData(), &status) == 0 && S_ISDIR(status.st_mode) &&
         status.st_uid == geteuid() && (status.st_mode & 0777) == 0700;
}

}  // namespace

std::unique_ptr<TaskSocket> TaskSocket::Listen(const QString& task, QString* error) {
  static std::atomic<unsigned> counter{0};
  std::unique_ptr<TaskSocket> socket(new TaskSocket);
  QByteArray directory;
  if (!socket->PrepareDirectory(&directory, error)) return nullptr;
  const QByteArray stem =
      directory + '/' + QFile::encodeName(task) + '-' + QByteArray::number(getpid()) + '-';
  do {  // A file may be left of an earlier process with our id that the machine's end cut short.
    socket->path_ = stem + QByteArray::number(++counter);
  } while (QFile::exists(QFile::decodeName(socket->path_)));
  return socket->Bind(error) ? std::move(socket) : nullptr;
}

TaskSocket::~TaskSocket() {
  if (descriptor_ >= 0) close(descriptor_);
  if (!owns_files_) return;
  if (descriptor_ >= 0) unlink(path_.constData());
  if (!private_directory_.isEmpty()) rmdir(private_directory_.constData());
}

bool TaskSocket::PrepareDirectory(QByteArray* directory, QString* error) {
  const QByteArray runtime = qgetenv("XDG_RUNTIME_DIR");
  if (runtime.startsWith('/') && QDir(QFile::decodeName(runtime)).exists()) {
    *directory = runtime + "/tavo";
    const QString shown = QFile::decodeName(*directory);
    if (mkdir(directory->constData(), 0700) != 0 && errno != EEXIST) {
      *error = QStringLiteral("no directory %1: %2").arg(shown, ErrnoText());
      return false;
    }
    if (IsPrivateDirectory(*directory)) return true;
    *error = QStringLiteral("%1 is no directory of this user with mode 0700").arg(shown);
    return false;
  }
  QByteArray name = QFile::encodeName(QDir::tempPath()) + "/tavo-XXXXXX";
  if (!mkdtemp(name.data())) {
    *error =
        QStringLiteral("no private directory %1: %2").arg(QFile::decodeName(name), ErrnoText());
    return false;
  }
  *directory = private_directory_ = name;
  return true;
}

bool TaskSocket::Bind(QString* error) {
  const QString shown = QFile::decodeName(path_);
  if (path_.size() > kLongestPath) {
    *error = QStringLiteral("the socket path %1 has %2 bytes, at most %3 are possible")
                 .arg(shown, QString::number(path_.size()), QString::number(kLongestPath));
    return false;
  }
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, path_.constData(), static_cast<size_t>(path_.size()));
  const int descriptor = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  if (descriptor >= 0 &&
      bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) {
    descriptor_ = descriptor;
    if (listen(descriptor, SOMAXCONN) == 0) return true;
  }
  *error = QStringLiteral("no socket %1: %2").arg(shown, ErrnoText());
  if (descriptor >= 0 && descriptor_ < 0) close(descriptor);
  return false;
}

}  // namespace desk
