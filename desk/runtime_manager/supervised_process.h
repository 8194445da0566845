// A process group that is started and ended, and of which nothing is left behind.
//
// Threads: any; the descriptor is for the event loop of the owner.
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
  // What happens to the rest of the group when the process ends by itself.
  enum class Leftovers { kEnded, kSpared };

  // Descriptors that the process gets as its standard ones.
  struct Streams {
    int input = -1;   // -1: /dev/null.
    int output = -1;  // -1: that of the starter.
  };

  // Executes the supervisor, which takes over the files of the socket (null: none). Null, with the
  // cause in `error`, when that fails.
  static std::unique_ptr<SupervisedProcess> Start(const Application& application,
                                                  TaskSocket* socket, QString* error,
                                                  Leftovers leftovers = Leftovers::kEnded,
                                                  const Streams& streams = {-1, -1});
  // Ends the process group: asks it to end, and kills it later if it does not. Does not wait.
  ~SupervisedProcess();
  SupervisedProcess(const SupervisedProcess&) = delete;
  SupervisedProcess& operator=(const SupervisedProcess&) = delete;

  // Readable when ReadNews has something to tell.
  int GetDescriptor() const { return link_; }

  enum class News { kNone, kRunning, kFailed, kEnded, kLost };
  // Returns one piece of news at each call; for kFailed and kLost the cause is stored in `error`.
  // After kEnded nothing is left of the process group. kLost: the supervisor was killed, and the
  // group was killed then, but its end was not observed.
  News ReadNews(QString* error);

  // After kRunning.
  int GetProcessId() const { return group_; }

  // After kEnded: how the process ended, as waitpid tells it.
  int GetStatus() const { return status_; }

  void Send(Order order);

 private:
  SupervisedProcess(int link, const TaskSocket* socket);
  News OnReport(const SupervisorReport& report, QString* error);
  News OnLinkEnd(QString* error);

  const int link_;
  SupervisorReport report_{};  // The report that is being received.
  size_t report_size_ = 0;     // The bytes that have arrived.
  const QByteArray socket_path_;
  const QByteArray private_directory_;
  int group_ = 0;  // The task's process group; 0: there is none.
  int status_ = 0;
};

}  // namespace desk
