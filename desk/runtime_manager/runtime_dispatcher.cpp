#include "platform/runtime_manager/runtime_dispatcher.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <utility>

#include <QCoreApplication>
#include <QPointer>
#include <QtGlobal>

#include "desk/common/diagnostics.h"
#include "desk/runtime_manager/intent_server.h"

namespace RuntimeManager {
namespace {

constexpr int kFirstPassedDescriptor = 3;

// Sockets are passed from descriptor 3 on, and announced to one process id. If a debugger's server
// wraps the task, it is that process and forks the task, so its children may take the socket, too.
int TakePassedSocket() {
  const pid_t announced = qEnvironmentVariableIntValue("LISTEN_PID");
  const bool passed = qEnvironmentVariableIntValue("LISTEN_FDS") >= 1 && announced > 0 &&
                      (announced == getpid() || announced == getppid());
  for (const char* name : {"LISTEN_PID", "LISTEN_FDS", "LISTEN_FDNAMES"}) unsetenv(name);
  if (!passed || fcntl(kFirstPassedDescriptor, F_SETFD, FD_CLOEXEC) != 0) return -1;
  return kFirstPassedDescriptor;
}

// Lives as long as the application object, whose event loop it needs. Null without an application
// and during its destruction. The pointer outlives static objects, which may still call.
desk::IntentServer* GetIntentServer() {
  static auto& server = *new QPointer<desk::IntentServer>;
  if (!QCoreApplication::instance()) return nullptr;
  if (!server) server = new desk::IntentServer(QCoreApplication::instance());
  return server;
}

}  // namespace

RuntimeDispatcher* RuntimeDispatcher::instance() {
  static RuntimeDispatcher dispatcher;
  return &dispatcher;
}

int RuntimeDispatcher::localServerSocket() {
  static const int descriptor = TakePassedSocket();
  return descriptor;
}

void RuntimeDispatcher::registerIntent(const QString& name, IntentHandler handler) {
  desk::IntentServer* server = GetIntentServer();
  QString error = QStringLiteral("there is no event loop");
  if (server && server->Register(name, std::move(handler), &error)) return;
  desk::ReportError(QStringLiteral("the intent \"%1\" is not offered: %2").arg(name, error));
}

}  // namespace RuntimeManager
