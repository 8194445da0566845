// The intents that this process offers, and how other processes find them.
//
// Each intent is a socket in intents/ of the shared directory, named after the intent's digest and
// the process. An invocation is a connection, open until it is answered: one line {"intent",
// "options", "parameters"} there, one line {"answer"} or {"error": {"code", "message"}} back. Of
// several applications that offer an intent, the one that registered it last is invoked, as the
// times of the files tell. An application that never answers is waited for.
//
// A process that calls exit removes its files. What others left is removed by whoever offers or
// invokes an intent, and by the supervisor of a task that ends.
//
// Threads: made, used and deleted on the thread whose event loop runs the handlers; the reply
//          functions may be called on any.
#pragma once

#include <map>
#include <memory>
#include <mutex>

#include <QByteArray>
#include <QJsonObject>
#include <QObject>
#include <QPointer>
#include <QString>

#include "desk/runtime_manager/acceptor.h"
#include "desk/runtime_manager/message_peer.h"
#include "platform/runtime_manager/error.h"
#include "platform/runtime_manager/runtime_dispatcher.h"

namespace desk {

class IntentServer : public QObject {
  Q_OBJECT

 public:
  using Handler = RuntimeManager::RuntimeDispatcher::IntentHandler;

  explicit IntentServer(QObject* parent);
  ~IntentServer() override;

  // The last handler of a name counts. False, with the cause in `error`, when it cannot be offered.
  bool Register(const QString& name, Handler handler, QString* error);

  // Connects to whoever registered the intent last; -1 when that fails, with the cause in `error`,
  // or empty when nobody offers the intent.
  static int ConnectTo(const QString& name, RuntimeManager::Error* error);

 private:
  struct Intent;
  using Intents = std::map<QString, Intent>;

  // How an answer finds its way: the server, while it lives.
  struct Home {
    std::mutex mutex;
    IntentServer* server;  // Guarded by mutex. Null once it is gone.
  };
  class Answer;

  void Serve(int descriptor);
  void Handle(MessagePeer* peer, const QJsonObject& request);

  const std::shared_ptr<Home> home_;
  Intents intents_;
};

}  // namespace desk
