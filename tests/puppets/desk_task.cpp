// A task application for tests of the desk: it does what each message says, and sends it back.
//   {"do": "describe"}         answers with its arguments, environment, descriptors and processes
//   {"do": "fork"}             tells the pid of a child that ignores SIGTERM, in its group
//   {"do": "offer"}            offers the intent "intent"
//   {"data": "flood N"}        sends N messages first
#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <QCoreApplication>
#include <QJsonArray>
#include <QJsonObject>

#include "platform/runtime_manager/runtime_dispatcher.h"
#include "platform/runtime_manager/task_messaging.h"

namespace {

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
  QJsonObject facts;
  facts["descriptors"] = OpenDescriptors();  // Before Qt has its own.
  facts["blocks"] = (fcntl(3, F_GETFL) & O_NONBLOCK) == 0;
  facts["environment"] = Environment();
  facts["pid"] = getpid();
  facts["parent"] = getppid();
  facts["group"] = getpgrp();
  const QCoreApplication app(argc, argv);
  auto* desk = RuntimeManager::RuntimeDispatcher::instance();
  RuntimeManager::TaskMessaging starter(desk->localServerSocket());
  facts["arguments"] = QJsonArray::fromStringList(QCoreApplication::arguments().mid(1));
  facts["environment now"] = Environment();
  const auto follow = [&](const QJsonObject& message) {
    const QString what = message["do"].toString();
    const int flood = message["data"].toString().section(' ', 1).toInt();
    for (int i = 0; i < flood; ++i) starter.sendMessage({{"data", "x"}});
    if (what == "describe") return starter.sendMessage(facts);
    if (what == "fork") return starter.sendMessage({{"pid", Fork()}});
    if (what == "offer") desk->registerIntent("intent", {});
    starter.sendMessage(message);
  };
  QObject::connect(&starter, &RuntimeManager::TaskMessaging::messageReceived, follow);
  return QCoreApplication::exec();
}
