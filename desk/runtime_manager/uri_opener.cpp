#include "desk/runtime_manager/uri_opener.h"

#include <cerrno>
#include <utility>

#include <QJsonObject>
#include <QProcess>
#include <QUrl>

#include "desk/runtime_manager/recorder.h"

namespace desk {
namespace {

using Done = std::function<void(const RuntimeManager::Error&)>;
using RuntimeManager::Error;

Error Failure(const QString& uri, const QString& cause) {
  return {EIO, QStringLiteral("\"%1\" was not opened: %2").arg(uri, cause)};
}

// A text without a scheme might be an option of the opener.
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

void RunOpener(const QString& uri, QObject* context, Done done) {
  auto* opener = new QProcess(context);
  const auto finish = [opener, done = std::move(done)](const Error& error) {
    opener->disconnect();
    opener->deleteLater();
    done(error);
  };
  QObject::connect(
      opener, qOverload<int, QProcess::ExitStatus>(&QProcess::finished), context,
      [=](int code, QProcess::ExitStatus status) {
        const bool opened = status == QProcess::NormalExit && code == 0;
        finish(opened ? Error() : Failure(uri, QStringLiteral("xdg-open ended with %1").arg(code)));
      });
  QObject::connect(opener, &QProcess::errorOccurred, context, [=](QProcess::ProcessError error) {
    if (error == QProcess::FailedToStart) finish(Failure(uri, opener->errorString()));
  });
  opener->setStandardInputFile(QProcess::nullDevice());
  opener->setStandardOutputFile(QProcess::nullDevice());
  opener->setProcessChannelMode(QProcess::ForwardedErrorChannel);
  opener->start(QStringLiteral("xdg-open"), {uri});
}

}  // namespace

void OpenUri(const QString& uri, QObject* context, Done done) {
  const QByteArray mode = qgetenv("TAVO_DESK_OPEN_URI");
  const bool opens = mode.isEmpty() || mode == "open";
  // The opener may fail to start within its call: the outcome is told from the event loop always.
  const auto run = [=] {
    if (mode == "record") return done(RecordUri(uri));
    if (opens && IsUri(uri)) return RunOpener(uri, context, done);
    if (opens) return done(Failure(uri, QStringLiteral("it is no URI")));
    done(Failure(uri, QStringLiteral("TAVO_DESK_OPEN_URI is \"%1\"").arg(QString::fromUtf8(mode))));
  };
  QMetaObject::invokeMethod(context, run, Qt::QueuedConnection);
}

}  // namespace desk
