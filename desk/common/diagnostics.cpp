#include "desk/common/diagnostics.h"

#include <unistd.h>

#include <cstring>

#include "desk/common/quiet_write.h"

namespace desk {

void ReportError(const QString& text, const char* source) {
  const int error = errno;
  const QByteArray line = source + QByteArray(": ") + text.toLocal8Bit() + '\n';
  size_t written = 0;
  WriteQuietly(STDERR_FILENO, line.constData(), static_cast<size_t>(line.size()), 0, &written);
  errno = error;
}

QString ErrnoText(int error) { return QString::fromLocal8Bit(std::strerror(error)); }

}  // namespace desk
