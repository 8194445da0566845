#include "desk/runtime_manager/socket_files.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <mutex>

#include <QDir>
#include <QFile>

#include "desk/common/diagnostics.h"
#include "desk/common/transfer.h"
#include "desk/common/unix_socket.h"
#include "desk/runtime_manager/socket_directory.h"

namespace desk {
QByteArray GetRuntimeDirectory() {
  const QByteArray path = qgetenv("XDG_RUNTIME_DIR");
  struct stat status {};
  const bool is_own = path.startsWith('/') && stat(path.constData(), &status) == 0 &&
                      S_ISDIR(status.st_mode) && status.st_uid == geteuid();
  if (!is_own || (status.st_mode & 022) == 0) return is_own ? path : QByteArray();
  static std::once_flag told;
  std::call_once(told, [&] {
    ReportError(
        QStringLiteral("XDG_RUNTIME_DIR is not used: other users may write in %1 (mode %2); "
                       "give it mode 0700")
            .arg(QFile::decodeName(path))
            .arg(status.st_mode & 07777, 4, 8, QLatin1Char('0')));
  });
  return {};
}

QString PrivateDirectoryFault(const QByteArray& path, int fault) {
  const QString shown = QFile::decodeName(path);
  if (fault != EPERM) return QStringLiteral("%1: %2").arg(shown, ErrnoText(fault));
  return QStringLiteral("%1 is not a directory of this user with mode 0700").arg(shown);
}

bool MakePrivateDirectory(const QByteArray& path, QString* error) {
  if (mkdir(path.constData(), 0700) != 0 && errno != EEXIST) {
    *error = QStringLiteral("no directory %1: %2").arg(QFile::decodeName(path), ErrnoText());
    return false;
  }
  const int fault = CheckPrivateDirectory(path.constData());
  if (fault != 0) *error = PrivateDirectoryFault(path, fault);
  return fault == 0;
}

QByteArray GetSharedDirectory() {
  const QByteArray runtime = GetRuntimeDirectory();
  if (!runtime.isEmpty()) return runtime + "/tavo";
  return QFile::encodeName(QDir::tempPath()) + "/tavo-" + QByteArray::number(geteuid());
}

int ListenAt(const QByteArray& path, QString* error) {
  const QString shown = QFile::decodeName(path);
  if (path.size() > kMaxSocketPath) {
    *error = QStringLiteral("the socket path %1 has %2 bytes, at most %3 are possible")
                 .arg(shown, QString::number(path.size()), QString::number(kMaxSocketPath));
    return -1;
  }
  const int descriptor = AboveStandard(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const bool bound = descriptor >= 0 && BindTo(descriptor, path);
  if (bound && listen(descriptor, SOMAXCONN) == 0) return descriptor;
  *error = QStringLiteral("no socket %1: %2").arg(shown, ErrnoText());
  if (bound) unlink(path.constData());
  if (descriptor >= 0) close(descriptor);
  return -1;
}

}  // namespace desk
