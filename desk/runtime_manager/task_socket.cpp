#include "desk/runtime_manager/task_socket.h"

#include <unistd.h>

#include <atomic>
#include <cstdlib>

#include <QDir>
#include <QFile>

#include "desk/common/diagnostics.h"
#include "desk/runtime_manager/socket_files.h"

namespace desk {

std::unique_ptr<TaskSocket> TaskSocket::Listen(const QString& task, QString* error) {
  static std::atomic<unsigned> counter{0};
  std::unique_ptr<TaskSocket> socket(new TaskSocket);
  QByteArray directory;
  if (!socket->PrepareDirectory(&directory, error)) return nullptr;
  const QByteArray stem =
      directory + '/' + QFile::encodeName(task) + '-' + QByteArray::number(getpid()) + '-';
  do {  // An earlier process with this id may have left a file when the machine stopped.
    socket->path_ = stem + QByteArray::number(++counter);
  } while (QFile::exists(QFile::decodeName(socket->path_)));
  socket->descriptor_ = ListenAt(socket->path_, error);
  return socket->descriptor_ >= 0 ? std::move(socket) : nullptr;
}

TaskSocket::~TaskSocket() {
  if (descriptor_ >= 0) close(descriptor_);
  if (!owns_files_) return;
  if (descriptor_ >= 0) unlink(path_.constData());
  if (!private_directory_.isEmpty()) rmdir(private_directory_.constData());
}

// The process id and a number follow the name, as Listen makes it.
QString TaskSocket::GetTask(const QString& path) {
  return path.section(QLatin1Char('/'), -1).section(QLatin1Char('-'), 0, -3);
}

bool TaskSocket::PrepareDirectory(QByteArray* directory, QString* error) {
  const QByteArray runtime = GetRuntimeDirectory();
  if (!runtime.isEmpty()) {
    *directory = runtime + "/tavo";
    return MakePrivateDirectory(*directory, error);
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

}  // namespace desk
