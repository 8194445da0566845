// The intents that this process offers, and how other processes find them.
//
// Each intent is a socket in intents/ of the shared directory, named after the intent's digest and
// the process. An invocation is a connection, open until it is answered: one line {"intent",
// "options", "parameters"} there, one line {"answer"} or {"error": {"code", "message"}} back. Of
// several applications that offer an intent, the one that registered it last is invoked, as the
// times of the files tell. There is no time limit for the answer.
//
// A process that calls exit removes its files. The files of other ended processes are removed by
// each process that offers or invokes an intent, and by the supervisor of a task that ends.
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

  // The last handler of a name counts. False, with the cause in `error`, if it cannot be offered.
  bool Register(const QString& name, Handler handler, QString* error);

  // Connects to the application that has registered the intent last. -1 on failure, with the cause
  // in `error`, which is empty when no application offers the intent.
  static int ConnectTo(const QString& name, RuntimeManager::Error* error);

 private:
  struct Intent;
  using Intents = std::map<QString, Intent>;

  // The way of an answer to the server, as long as that lives.
  struct Home {
    std::mutex mutex;
    IntentServer* server;  // Guarded by mutex. Null once the server is destroyed.
  };
  class Answer;

  void Serve(int descriptor);
  void Handle(MessagePeer* peer, const QJsonObject& request);

  const std::shared_ptr<Home> home_;
  Intents intents_;
};

}  // namespace desk
