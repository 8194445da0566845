// The side of the tool that plays a task: the server of this process, and what it sends later.
//
//   ExpectStarter();
//   RunSession([&](Session& session) {
//     TaskServer task(session);
//     task.Get().OnConnected([&](const auto&) {
//       task.SendLater(1s, 7, [&](auto value) { task.Get().SendNotify("late", value); });
//     });
//     task.Serve();
//   });
//
// Threads: the main thread alone.
// Errors:  CommandError.
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <string>

#include <QTimer>

#include "cw/encodable_value.h"
#include "flrpc/server.h"
#include "forge/buffer.h"
#include "tools/session.h"

namespace tools {

// Throws kWrongUsage unless a starter has handed over the socket of a task. To be called before
// anything is opened. The text tells how to start the subcommand.
void ExpectStarter();

class TaskServer {
 public:
  using Clock = std::chrono::steady_clock;
  using SendFunction = std::function<void(cw::EncodableValue value)>;

  explicit TaskServer(Session& session);
  ~TaskServer();
  TaskServer(const TaskServer&) = delete;
  TaskServer& operator=(const TaskServer&) = delete;

  flrpc::IServer& Get() const { return *server_; }

  // Calls the function with the value when the delay is over: at once for 0, otherwise within
  // Serve. Returns false, and drops both, when too much waits.
  bool SendLater(Clock::duration delay, cw::EncodableValue value, SendFunction send);

  // Serves until a signal ends the process: the task's supervisor sends one when the starter says
  // so or is gone.
  [[noreturn]] void Serve();

 private:
  // What waits is kept as bytes, so that its memory is known.
  struct Waiting {
    forge::Buffer value;
    SendFunction send;
  };

  void SendDue();

  Session& session_;
  const std::shared_ptr<flrpc::IServer> server_;  // Never null.
  std::multimap<Clock::time_point, Waiting> waiting_;
  size_t waiting_size_ = 0;
  QTimer timer_;  // Wakes the event loop when the first one is due.
};

}  // namespace tools
