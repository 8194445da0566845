// A task application for tests of the desk: it does what each message says, and sends it back.
//   {"do": "describe"}         answers with its arguments, environment, descriptors and processes
//   {"do": "fork"}             makes a child in its process group that ignores SIGTERM; tells its
//                              pid
//   {"do": "start"}            starts a task of its own, describes it, and relays the answer
//   {"do": "offer"}            offers the intent "intent"
//   {"data": "flood N"}        sends N messages first
#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <memory>

#include <QCoreApplication>
#include <QJsonArray>
#include <QJsonObject>

#include "platform/runtime_manager/runtime_dispatcher.h"
#include "platform/runtime_manager/task.h"
#include "platform/runtime_manager/task_messaging.h"

namespace {

using RuntimeManager::RuntimeDispatcher;
using RuntimeManager::TaskMessaging;

QJsonArray OpenDescriptors() {
  QJsonArray open;
  for (int descriptor = 0; descriptor < 256; ++descriptor) {
    if (fcntl(descriptor, F_GETFD) >= 0) open.append(descriptor);
  }
  return open;
}

QJsonArray Environment() {
  QJsonArray environment;
  for (const char* name : {"LISTEN_PID", "LISTEN_FDS", "LISTEN_FDNAMES", "MARK"}) {
    environment.append(qEnvironmentVariable(name, "unset"));
  }
  return environment;
}

pid_t Fork() {
  signal(SIGTERM, SIG_IGN);  // Inherited: the child must never obey.
  const pid_t child = fork();
  while (child == 0) pause();
  signal(SIGTERM, SIG_DFL);
  return child;
}

}  // namespace

int main(int argc, char** argv) {
  QJsonObject description{{"pid", getpid()},
                          {"parent", getppid()},
                          {"group", getpgrp()},
                          {"descriptors", OpenDescriptors()},  // Before Qt has its own.
                          {"blocks", (fcntl(3, F_GETFL) & O_NONBLOCK) == 0},
                          {"environment", Environment()}};
  const QCoreApplication application(argc, argv);
  RuntimeDispatcher* dispatcher = RuntimeDispatcher::instance();
  TaskMessaging messaging(dispatcher->localServerSocket());
  description["arguments"] = QJsonArray::fromStringList(QCoreApplication::arguments().mid(1));
  description["environment now"] = Environment();
  description["again"] = dispatcher->localServerSocket();
  RuntimeManager::Task task("desk_task");
  std::unique_ptr<TaskMessaging> inner;
  const auto relay = [&](const RuntimeManager::Error& error) {
    if (error) return messaging.sendMessage({{"error", error.message()}});
    inner = std::make_unique<TaskMessaging>(task.socketPath());
    QObject::connect(inner.get(), &TaskMessaging::messageReceived, &messaging,
                     &TaskMessaging::sendMessage);
    inner->sendMessage({{"do", "describe"}});
  };
  QObject::connect(&messaging, &TaskMessaging::messageReceived, [&](const QJsonObject& message) {
    const QString what = message["do"].toString();
    const QString text = message["data"].toString();
    const int flood = text.startsWith("flood ") ? text.mid(6).toInt() : 0;
    for (int i = 0; i < flood; ++i) messaging.sendMessage({{"data", "x"}});
    if (what == "describe") return messaging.sendMessage(description);
    if (what == "fork") return messaging.sendMessage({{"pid", Fork()}});
    if (what == "offer") dispatcher->registerIntent("intent", {});
    if (what != "start") return messaging.sendMessage(message);
    task.withIpcSocket(true);
    task.start(relay);
  });
  return QCoreApplication::exec();
}
