#include "platform/runtime_manager/intents_invoker.h"

#include <cerrno>
#include <utility>

#include <QJsonDocument>
#include <QPointer>

#include "desk/runtime_manager/intent_server.h"
#include "desk/runtime_manager/json_line.h"
#include "desk/runtime_manager/message_peer.h"
#include "desk/runtime_manager/uri_opener.h"

namespace RuntimeManager {
namespace {

const QString kOpenUri = QStringLiteral("OpenURI");

}  // namespace

struct IntentsInvoker::Private {
  IntentsInvoker* const owner;

  void Invoke(const QString& name, const QJsonObject& options, const QJsonObject& parameters) {
    Error error;
    const int descriptor = desk::IntentServer::ConnectTo(name, &error);
    if (descriptor >= 0) return Ask(descriptor, name, options, parameters);
    if (error) return Fail(error.code(), error.message());
    if (name == kOpenUri) {
      return desk::OpenUri(
          parameters.value(QStringLiteral("uri")).toString(), owner,
          [this](const Error& outcome) { Q_EMIT owner->replyReceived({}, outcome); });
    }
    Fail(ENOENT, QStringLiteral("no application offers the intent \"%1\"").arg(name));
  }

  void Fail(int code, const QString& message) { Q_EMIT owner->replyReceived({}, {code, message}); }

  void Ask(int descriptor, const QString& name, const QJsonObject& options,
           const QJsonObject& parameters) {
    const QByteArray line = desk::MakeLine({{QStringLiteral("intent"), name},
                                            {QStringLiteral("options"), options},
                                            {QStringLiteral("parameters"), parameters}});
    auto* peer = new desk::MessagePeer(owner);
    QObject::connect(peer, &desk::MessagePeer::messageReceived, owner,
                     [this, peer](const QJsonObject& reply) {
                       Forget(peer);
                       Tell(reply);
                     });
    QObject::connect(peer, &desk::MessagePeer::closed, owner, [this, name] {
      Fail(EPIPE, QStringLiteral("the application that offers \"%1\" is gone").arg(name));
    });
    peer->TakeOver(descriptor);
    const QString what = QStringLiteral("invocation of the intent \"%1\"").arg(name);
    if (desk::IsSendable(line, what)) return peer->Send(line);
    Forget(peer);
    Fail(EMSGSIZE, QStringLiteral("the parameters of \"%1\" are too large").arg(name));
  }

  // Each invocation has one reply; everything after it is ignored.
  static void Forget(desk::MessagePeer* peer) {
    peer->disconnect();
    peer->deleteLater();
  }

  // A message that is no clear answer is an error.
  void Tell(const QJsonObject& reply) {
    const QJsonValue answer = reply.value(QStringLiteral("answer"));
    if (answer.isObject() && !reply.contains(QStringLiteral("error"))) {
      Q_EMIT owner->replyReceived(answer.toObject(), {});
      return;
    }
    const QJsonObject error = reply.value(QStringLiteral("error")).toObject();
    const int code = error.value(QStringLiteral("code")).toInt();
    Fail(code != 0 ? code : EPROTO, error.value(QStringLiteral("message")).toString());
  }
};

IntentsInvoker::IntentsInvoker(QObject* parent) : QObject(parent), d_(new Private{this}) {}

IntentsInvoker::~IntentsInvoker() = default;

void IntentsInvoker::invoke(const QString& name, const QJsonObject& options,
                            const QJsonObject& parameters) {
  // A reply never comes within the call, on any thread.
  QMetaObject::invokeMethod(
      this, [=] { d_->Invoke(name, options, parameters); }, Qt::QueuedConnection);
}

}  // namespace RuntimeManager
