// A process group that is started, ended and never left behind.
//
// Threads: any; the descriptor is for the event loop of whoever watches it.
#pragma once

#include <memory>

#include <QString>

#include "desk/runtime_manager/application.h"
#include "desk/runtime_manager/supervisor.h"
#include "desk/runtime_manager/task_socket.h"

namespace desk {

class SupervisedProcess {
 public:
  // Forks the supervisor, which takes the socket's files over; the socket may be null. Null, with
  // the cause in `error`, when not even that succeeds.
  static std::unique_ptr<SupervisedProcess> Start(const Application& application,
                                                  TaskSocket* socket, QString* error);
  // Ends the process group: at once asked to, killed when it does not obey. Does not wait.
  ~SupervisedProcess();
  SupervisedProcess(const SupervisedProcess&) = delete;
  SupervisedProcess& operator=(const SupervisedProcess&) = delete;

  // Readable when ReadNews has something to tell.
  int GetDescriptor() const { return link_; }

  enum class News { kNone, kRunning, kFailed, kEnded };
  // What happened, one thing a call; the cause of kFailed is put into `error`. After kEnded
  // nothing is left of the process group.
  News ReadNews(QString* error);

  void Send(Command command);

 private:
  explicit SupervisedProcess(int link) : link_(link) {}

  const int link_;
};

}  // namespace desk
