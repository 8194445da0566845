// A process group that is started, ended and never left behind.
//
// Threads: any; the descriptor is for the event loop of whoever watches it.
#pragma once

#include <memory>

#include <QByteArray>
#include <QString>

#include "desk/runtime_manager/application.h"
#include "desk/runtime_manager/supervisor.h"
#include "desk/runtime_manager/task_socket.h"

namespace desk {

class SupervisedProcess {
 public:
  // What a process that ends by itself leaves behind in its group.
  enum class Leftovers { kEnded, kSpared };

  // Executes the supervisor, which takes the socket's files over; the socket may be null. Null,
  // with the cause in `error`, when not even that succeeds.
  static std::unique_ptr<SupervisedProcess> Start(const Application& application,
                                                  TaskSocket* socket, QString* error,
                                                  Leftovers leftovers = Leftovers::kEnded);
  // Ends the process group: at once asked to, killed when it does not obey. Does not wait.
  ~SupervisedProcess();
  SupervisedProcess(const SupervisedProcess&) = delete;
  SupervisedProcess& operator=(const SupervisedProcess&) = delete;

  // Readable when ReadNews has something to tell.
  int GetDescriptor() const { return link_; }

  enum class News { kNone, kRunning, kFailed, kEnded, kLost };
  // What happened, one thing a call; the cause of kFailed and kLost is put into `error`. After
  // kEnded nothing is left of the process group. kLost: the supervisor was killed; the group was
  // killed, too, but nobody saw it go.
  News ReadNews(QString* error);

  // After kRunning.
  int GetProcessId() const { return group_; }

  // After kEnded: how the process ended, as waitpid tells it.
  int GetStatus() const { return status_; }

  void Send(Command command);

 private:
  SupervisedProcess(int link, const TaskSocket* socket);
  News OnReport(const SupervisorReport& report, QString* error);
  News OnLinkEnd(QString* error);

  const int link_;
  SupervisorReport report_{};  // The one that comes,
  size_t report_size_ = 0;     // as far as it has come.
  const QByteArray socket_path_;
  const QByteArray private_directory_;
  int group_ = 0;  // The task's process group; 0: there is none.
  int status_ = 0;
};

}  // namespace desk
