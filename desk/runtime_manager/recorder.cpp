#include "desk/runtime_manager/recorder.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>

#include <QFile>
#include <QJsonDocument>

#include "desk/common/diagnostics.h"
#include "desk/common/quiet_write.h"
#include "desk/runtime_manager/record_entry.h"
#include "desk/runtime_manager/task_socket.h"

namespace desk {
namespace {

QString GetRecordPath() { return QFile::decodeName(qgetenv("TAVO_DESK_RECORD")); }

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

// Returns what watchers get in the place of a large message: its size and, of a message of
// libtavo.so, the beginning of its text, where the method and the identifier are.
QByteArray MakeShortMessage(const QByteArray& message) {
  constexpr char kData[] = "{\"data\":\"";
  constexpr int kHeadSize = 1 << 10;  // A multiple of four, as Base64 needs.
  QByteArray text = "null,\"size\":" + QByteArray::number(message.size());
  if (!message.startsWith(kData)) return text;
  const QByteArray head = message.mid(sizeof kData - 1, kHeadSize);
  const auto is_plain = [](char c) { return c > ' ' && c <= '~' && c != '"' && c != '\\'; };
  if (!std::all_of(head.begin(), head.end(), is_plain)) return text;
  return text + ",\"head\":\"" + head + '"';
}

// Returns what the entries of a new connection share. The connection's name is unique in the
// session.
QByteArray MakeSharedMembers(const QString& task, int peer) {
  static std::atomic<unsigned> counter{0};
  const pid_t pid = getpid();
  QJsonObject members{{QStringLiteral("connection"),
                       QStringLiteral("%1.%2").arg(pid).arg(counter.fetch_add(1) + 1)},
                      {QStringLiteral("pid"), pid},
                      {QStringLiteral("task"), task}};
  if (peer > 0) members.insert(QStringLiteral("peer"), peer);
  QByteArray text = QJsonDocument(members).toJson(QJsonDocument::Compact);
  text.chop(1);
  return text;
}

}  // namespace

bool Record(const QJsonObject& entry, QString* error) {
  const QByteArray line = MakeEntry(entry);
  if (watchers::AreThere()) watchers::Tell(line);
  const QString path = GetRecordPath();
  if (!path.isEmpty()) return AppendLine(path, line, error);
  ReportError(QString::fromUtf8(line));
  return true;
}

void RecordIfWanted(const QJsonObject& entry) {
  const QString path = GetRecordPath();
  if (path.isEmpty() && !watchers::AreThere()) return;
  const QByteArray line = MakeEntry(entry);
  if (watchers::AreThere()) watchers::Tell(line);
  QString error;
  if (path.isEmpty() || AppendLine(path, line, &error)) return;
  ReportError(QStringLiteral("an event is not recorded: ") + error);
}

FrameRecorder::FrameRecorder(const QString& socket_path, int peer)
    : path_(GetRecordPath()),
      task_(TaskSocket::GetTask(socket_path)),
      members_(MakeSharedMembers(task_, peer)) {}

void FrameRecorder::Append(const char* direction, const QByteArray& message) {
  const QByteArray head =
      members_ + ",\"direction\":\"" + direction + "\"," + MakeTimeMembers() + ",\"message\":";
  const bool is_large = message.size() > kMaxWatchedMessage;
  if (is_large && watchers::AreThere()) {
    watchers::Tell(head + MakeShortMessage(message) + '}');
    if (path_.isEmpty()) return;
  }
  const QByteArray entry = head + message + '}';
  if (!is_large && watchers::AreThere()) watchers::Tell(entry);
  if (!path_.isEmpty()) AppendToFile(entry);
}

void FrameRecorder::AppendToFile(const QByteArray& entry) {
  QString error;
  if (AppendLine(path_, entry, &error)) return;
  ReportError(QStringLiteral("nothing more is recorded of \"%1\": %2").arg(task_, error));
  path_.clear();
}

}  // namespace desk
