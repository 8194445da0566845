// A task application for tests of the desk: it does what each message says.
//   {"do": "describe"}         tells its arguments, directory, environment and descriptors
//   {"do": "echo", ...}        sends the message back
//   {"do": "fork"}             makes a child in its process group that ignores SIGTERM; tells its
//   pid
//   {"do": "ignore-term"}      ignores SIGTERM from now on, and says so
//   {"do": "start", "name"}    starts a task of its own, describes it, and relays the answer
//   {"do": "offer"}            offers the intent "intent", and says so
//   {"do": "exit"}             ends within the callback
#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <cstdlib>
#include <memory>

#include <QCoreApplication>
#include <QDir>
#include <QJsonArray>
#include <QJsonObject>

#include "platform/runtime_manager/runtime_dispatcher.h"
#include "platform/runtime_manager/task.h"
#include "platform/runtime_manager/task_messaging.h"

namespace {

using RuntimeManager::Error;
using RuntimeManager::Task;
using RuntimeManager::TaskMessaging;

QJsonArray OpenDescriptors() {
  QJsonArray descriptors;
  DIR* directory = opendir("/proc/self/fd");
  while (const dirent* entry = readdir(directory)) {
    if (entry->d_name[0] != '.' && atoi(entry->d_name) != dirfd(directory)) {
      descriptors.append(atoi(entry->d_name));
    }
  }
  closedir(directory);
  return descriptors;
}

QJsonObject Environment() {
  QJsonObject environment;
  for (const char* name : {"LISTEN_PID", "LISTEN_FDS", "LISTEN_FDNAMES", "MARK"}) {
    if (qEnvironmentVariableIsSet(name)) {
      environment.insert(QLatin1String(name), qEnvironmentVariable(name));
    }
  }
  return environment;
}

class DeskTask : public QObject {
 public:
  explicit DeskTask(const QJsonArray& descriptors)
      : descriptors_(descriptors),
        environment_(Environment()),
        messaging_(RuntimeManager::RuntimeDispatcher::instance()->localServerSocket()) {
    connect(&messaging_, &TaskMessaging::messageReceived, this, &DeskTask::Do);
  }

 private:
  void Do(const QJsonObject& message) {
    const QString what = message.value(QStringLiteral("do")).toString();
    if (what == QStringLiteral("describe")) return Describe();
    if (what == QStringLiteral("fork")) return Fork();
    if (what == QStringLiteral("start")) return Start(message.value(QStringLiteral("name")));
    if (what == QStringLiteral("exit")) exit(0);
    if (what == QStringLiteral("offer")) {
      RuntimeManager::RuntimeDispatcher::instance()->registerIntent(QStringLiteral("intent"), {});
    }
    if (what == QStringLiteral("ignore-term")) signal(SIGTERM, SIG_IGN);
    messaging_.sendMessage(message);
  }

  void Describe() {
    messaging_.sendMessage({{QStringLiteral("pid"), getpid()},
                            {QStringLiteral("parent"), getppid()},
                            {QStringLiteral("group"), getpgrp()},
                            {QStringLiteral("arguments"),
                             QJsonArray::fromStringList(QCoreApplication::arguments().mid(1))},
                            {QStringLiteral("directory"), QDir::currentPath()},
                            {QStringLiteral("descriptors"), descriptors_},
                            {QStringLiteral("blocks"), blocks_},
                            {QStringLiteral("environment"), environment_},
                            {QStringLiteral("environment now"), Environment()},
                            {QStringLiteral("again"),
                             RuntimeManager::RuntimeDispatcher::instance()->localServerSocket()}});
  }

  void Fork() {
    signal(SIGTERM, SIG_IGN);  // Inherited: the child must never obey.
    const pid_t child = fork();
    while (child == 0) pause();
    signal(SIGTERM, SIG_DFL);
    messaging_.sendMessage({{QStringLiteral("pid"), child}});
  }

  void Start(const QJsonValue& name) {
    task_ = std::make_unique<Task>(name.toString());
    task_->withIpcSocket(true);
    task_->start([this](const Error& error) {
      if (error) return messaging_.sendMessage({{QStringLiteral("error"), error.message()}});
      inner_ = std::make_unique<TaskMessaging>(task_->socketPath());
      connect(inner_.get(), &TaskMessaging::messageReceived, &messaging_,
              &TaskMessaging::sendMessage);
      inner_->sendMessage({{QStringLiteral("do"), QStringLiteral("describe")}});
    });
  }

  const QJsonArray descriptors_;
  const bool blocks_ = (fcntl(3, F_GETFL) & O_NONBLOCK) == 0;
  const QJsonObject environment_;
  TaskMessaging messaging_;
  std::unique_ptr<Task> task_;
  std::unique_ptr<TaskMessaging> inner_;
};

}  // namespace

int main(int argc, char** argv) {
  const QJsonArray descriptors = OpenDescriptors();  // Before Qt has its own.
  const QCoreApplication application(argc, argv);
  const DeskTask task(descriptors);
  return QCoreApplication::exec();
}
