#include "desk/runtime_manager/recorder.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include <QDateTime>
#include <QFile>
#include <QJsonDocument>

#include "desk/common/diagnostics.h"
#include "desk/common/quiet_write.h"
#include "desk/runtime_manager/message_peer.h"
#include "desk/runtime_manager/task_socket.h"

namespace desk {
namespace {

QString GetRecordPath() { return QFile::decodeName(qgetenv("TAVO_DESK_RECORD")); }

QByteArray StampedLine(QJsonObject entry) {
  entry.insert(QStringLiteral("time"), QDateTime::currentDateTimeUtc().toString(Qt::ISODateWithMs));
  return QJsonDocument(entry).toJson(QJsonDocument::Compact);
}

// Returns why an open file cannot keep private data, or the empty text when it can.
QString FindFault(const struct stat& status, bool opened_as_pipe) {
  if (opened_as_pipe ? !S_ISFIFO(status.st_mode) : !S_ISREG(status.st_mode)) {
    return QStringLiteral("it is neither a file nor a pipe");
  }
  if (status.st_uid != geteuid()) return QStringLiteral("another user owns it");
  if ((status.st_mode & 066) == 0) return {};
  return QStringLiteral("other users may open it (mode %1): give it mode 0600")
      .arg(status.st_mode & 07777, 4, 8, QLatin1Char('0'));
}

QString OpenFault(int error, bool is_pipe) {
  if (error == ELOOP) return QStringLiteral("it is a symbolic link: name the file itself");
  if (error == ENXIO && is_pipe) return QStringLiteral("nobody reads the pipe");
  if (error == ENXIO) return QStringLiteral("it is neither a file nor a pipe");
  return ErrnoText(error);
}

constexpr int kPatienceMs = 1000;  // For the reader of a pipe.

// The file that lines are appended to, opened for one line. Several processes may share it.
class RecordFile {
 public:
  // Does not follow a link, and does not wait for a pipe's reader.
  RecordFile(const QByteArray& path, QString* fault) {
    struct stat status {};
    is_pipe_ = lstat(path.constData(), &status) == 0 && S_ISFIFO(status.st_mode);
    const int access = is_pipe_ ? O_WRONLY : O_RDWR | O_CREAT;
    descriptor_ = open(path.constData(),
                       access | O_APPEND | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, 0600);
    *fault = descriptor_ < 0 || fstat(descriptor_, &status) != 0 ? OpenFault(errno, is_pipe_)
                                                                 : FindFault(status, is_pipe_);
  }
  ~RecordFile() {
    if (descriptor_ >= 0) close(descriptor_);
  }
  RecordFile(const RecordFile&) = delete;
  RecordFile& operator=(const RecordFile&) = delete;

  // Appends the line in one write if possible. A line that another process could not finish stays a
  // separate line.
  void Append(const QByteArray& line, QString* fault) {
    const QByteArray text = (EndsWithinALine() ? "\n" : "") + line + '\n';
    size_t written = 0;
    const int error = WriteQuietly(descriptor_, text.constData(), static_cast<size_t>(text.size()),
                                   kPatienceMs, &written);
    if (error == 0) return;
    *fault = error == EAGAIN ? QStringLiteral("the pipe is full, and nobody reads it")
                             : ErrnoText(error);
    if (written > 0 && !is_pipe_) TakeBack(static_cast<off_t>(written));
  }

 private:
  bool EndsWithinALine() const {
    struct stat status {};
    char last = '\n';
    return !is_pipe_ && fstat(descriptor_, &status) == 0 && status.st_size > 0 &&
           pread(descriptor_, &last, 1, status.st_size - 1) == 1 && last != '\n';
  }

  // Removes a half-written line, unless another process is known to have appended a line since.
  void TakeBack(off_t size) const {
    struct stat status {};
    const off_t end = lseek(descriptor_, 0, SEEK_CUR);
    if (fstat(descriptor_, &status) != 0 || status.st_size != end) return;
    if (ftruncate(descriptor_, end - size) != 0) return;  // The next Append begins a new line.
  }

  int descriptor_ = -1;
  bool is_pipe_ = false;
};

// Returns false, with the cause in `error`, when the line could not be appended.
bool AppendLine(const QString& path, const QByteArray& line, QString* error) {
  QString fault;
  RecordFile file(QFile::encodeName(path), &fault);
  if (fault.isEmpty()) file.Append(line, &fault);
  if (!fault.isEmpty()) *error = QStringLiteral("%1 (TAVO_DESK_RECORD): %2").arg(path, fault);
  return fault.isEmpty();
}

}  // namespace

bool Record(QJsonObject entry, QString* error) {
  const QByteArray line = StampedLine(std::move(entry));
  const QString path = GetRecordPath();
  if (!path.isEmpty()) return AppendLine(path, line, error);
  ReportError(QString::fromUtf8(line));
  return true;
}

void RecordIfNamed(QJsonObject entry) {
  QString error;
  if (GetRecordPath().isEmpty() || Record(std::move(entry), &error)) return;
  ReportError(QStringLiteral("an event is not recorded: ") + error);
}

FrameRecorder::FrameRecorder(QString path, QString task)
    : path_(std::move(path)), task_(std::move(task)) {}

std::unique_ptr<FrameRecorder> FrameRecorder::Create(const QString& socket_path) {
  QString path = GetRecordPath();
  if (path.isEmpty()) return nullptr;
  return std::unique_ptr<FrameRecorder>(
      new FrameRecorder(std::move(path), TaskSocket::GetTask(socket_path)));
}

void FrameRecorder::Append(const QString& direction, const QJsonObject& message) {
  if (path_.isEmpty()) return;
  QString error;
  const bool appended = AppendLine(path_,
                                   StampedLine({{QStringLiteral("task"), task_},
                                                {QStringLiteral("direction"), direction},
                                                {QStringLiteral("message"), message}}),
                                   &error);
  if (appended) return;
  ReportError(QStringLiteral("nothing more is recorded of \"%1\": %2").arg(task_, error));
  path_.clear();
}

}  // namespace desk
