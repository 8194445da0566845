#include "platform/runtime_manager/intents_invoker.h"

#include <cerrno>
#include <utility>

#include <QJsonDocument>
#include <QPointer>

#include "desk/runtime_manager/intent_server.h"
#include "desk/runtime_manager/message_peer.h"
#include "desk/runtime_manager/uri_opener.h"

namespace RuntimeManager {
namespace {

const QString kOpenUri = QStringLiteral("OpenURI");

}  // namespace

struct IntentsInvoker::Private {
  IntentsInvoker* const owner;

  void Invoke(const QString& name, const QJsonObject& options, const QJsonObject& parameters) {
    const int descriptor = desk::IntentServer::ConnectTo(name);
    if (descriptor >= 0) return Ask(descriptor, name, options, parameters);
    if (name == kOpenUri) {
      return desk::OpenUri(parameters.value(QStringLiteral("uri")).toString(), owner,
                           [this](const Error& error) { Q_EMIT owner->replyReceived({}, error); });
    }
    Q_EMIT owner->replyReceived(
        {}, {ENOENT, QStringLiteral("no application offers the intent \"%1\"").arg(name)});
  }

  void Ask(int descriptor, const QString& name, const QJsonObject& options,
           const QJsonObject& parameters) {
    auto* peer = new desk::MessagePeer(owner);
    QObject::connect(peer, &desk::MessagePeer::messageReceived, owner,
                     [this, peer](const QJsonObject& reply) {
                       Forget(peer);
                       Tell(reply);
                     });
    QObject::connect(peer, &desk::MessagePeer::closed, owner, [this, name] {
      Q_EMIT owner->replyReceived(
          {}, {EPIPE, QStringLiteral("the application that offers \"%1\" is gone").arg(name)});
    });
    peer->TakeOver(descriptor);
    peer->Send(QJsonDocument({{QStringLiteral("intent"), name},
                              {QStringLiteral("options"), options},
                              {QStringLiteral("parameters"), parameters}})
                   .toJson(QJsonDocument::Compact) +
               '\n');
  }

  // One reply an invocation: whatever else comes is not for us.
  static void Forget(desk::MessagePeer* peer) {
    peer->disconnect();
    peer->deleteLater();
  }

  void Tell(const QJsonObject& reply) {
    const QJsonObject error = reply.value(QStringLiteral("error")).toObject();
    Q_EMIT owner->replyReceived(reply.value(QStringLiteral("answer")).toObject(),
                                {error.value(QStringLiteral("code")).toInt(),
                                 error.value(QStringLiteral("message")).toString()});
  }
};

IntentsInvoker::IntentsInvoker(QObject* parent) : QObject(parent), d_(new Private{this}) {}

IntentsInvoker::~IntentsInvoker() = default;

void IntentsInvoker::invoke(const QString& name, const QJsonObject& options,
                            const QJsonObject& parameters) {
  // Replies never come within the call, whatever thread it is on.
  QMetaObject::invokeMethod(
      this, [=] { d_->Invoke(name, options, parameters); }, Qt::QueuedConnection);
}

}  // namespace RuntimeManager
