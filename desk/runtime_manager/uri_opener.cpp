#include "desk/runtime_manager/uri_opener.h"

#include <sys/wait.h>

#include <cerrno>
#include <memory>
#include <utility>

#include <QJsonObject>
#include <QSocketNotifier>
#include <QStandardPaths>
#include <QUrl>

#include "desk/common/diagnostics.h"
#include "desk/runtime_manager/recorder.h"
#include "desk/runtime_manager/supervised_process.h"

namespace desk {
namespace {

using Done = std::function<void(const RuntimeManager::Error&)>;
using RuntimeManager::Error;

Error Failure(const QString& uri, const QString& cause) {
  return {EIO, QStringLiteral("\"%1\" was not opened: %2").arg(uri, cause)};
}

// A text without a scheme could be taken as an option of the opener.
bool IsUri(const QString& text) {
  const QUrl url(text, QUrl::StrictMode);
  return url.isValid() && !url.scheme().isEmpty();
}

Error RecordUri(const QString& uri) {
  QString cause;
  const bool recorded =
      Record({{QStringLiteral("intent"), QStringLiteral("OpenURI")},
              {QStringLiteral("parameters"), QJsonObject{{QStringLiteral("uri"), uri}}}},
             &cause);
  return recorded ? Error() : Failure(uri, cause);
}

// A run of the desktop's opener. A browser that it has started goes on when this ends. QProcess is
// not used: it prints a warning when it is destroyed first, and does not run under an emulator.
class Opener : public QObject {
 public:
  Opener(QString uri, QObject* context, Done done)
      : QObject(context), uri_(std::move(uri)), done_(std::move(done)) {}

  void Run() {
    const QString program = QStandardPaths::findExecutable(QStringLiteral("xdg-open"));
    QString cause = QStringLiteral("the program xdg-open is not in PATH (package xdg-utils)");
    if (!program.isEmpty()) {
      process_ = SupervisedProcess::Start({{program, uri_}, {}}, nullptr, &cause,
                                          SupervisedProcess::Leftovers::kSpared);
    }
    if (!process_) return Finish(Failure(uri_, cause));
    notifier_ = std::make_unique<QSocketNotifier>(process_->GetDescriptor(), QSocketNotifier::Read);
    connect(notifier_.get(), &QSocketNotifier::activated, this, [this] { OnNews(); });
  }

 private:
  void OnNews() {
    using News = SupervisedProcess::News;
    QString cause;
    const News news = process_->ReadNews(&cause);
    const int status = process_->GetStatus();
    if (news == News::kFailed || news == News::kLost) return Finish(Failure(uri_, cause));
    if (news != News::kEnded) return;
    if (status == 0) return Finish({});
    cause = QStringLiteral("xdg-open ended with %1")
                .arg(WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status));
    Finish(Failure(uri_, cause));
  }

  void Finish(const Error& outcome) {
    if (notifier_) notifier_->setEnabled(false);
    deleteLater();
    std::exchange(done_, nullptr)(outcome);
  }

  const QString uri_;
  Done done_;
  std::unique_ptr<SupervisedProcess> process_;
  std::unique_ptr<QSocketNotifier> notifier_;  // Destroyed before the descriptor that it watches.
};

}  // namespace

void OpenUri(const QString& uri, QObject* context, const Done& callback) {
  const Done done = [callback](const Error& outcome) {
    if (outcome) ReportError(outcome.message());
    callback(outcome);
  };
  const QByteArray mode = qgetenv("TAVO_DESK_OPEN_URI");
  const bool opens = mode.isEmpty() || mode == "open";
  // The outcome is always told from the event loop.
  const auto run = [=] {
    if (mode == "record") return done(RecordUri(uri));
    if (opens && IsUri(uri)) return (new Opener(uri, context, done))->Run();
    if (opens) return done(Failure(uri, QStringLiteral("it is not a URI")));
    done(Failure(uri, QStringLiteral("TAVO_DESK_OPEN_URI is \"%1\"").arg(QString::fromUtf8(mode))));
  };
  QMetaObject::invokeMethod(context, run, Qt::QueuedConnection);
}

}  // namespace desk
