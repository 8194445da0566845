// The process that stands between a task and its launchers, for `tavo proxy`: accepts the
// launchers, connects each to the task, and passes their lines on until the task has ended.
//
// Threads: one at a time.
#pragma once

#include <chrono>
#include <cstdint>
#include <list>
#include <string>
#include <vector>

#include "tools/proxy_connection.h"

namespace tools {

// Descriptors that the server takes over.
struct ProxyDescriptors {
  int listener;   // To which the launchers connect.
  int task_path;  // The task's socket as a file: opened with O_PATH, it may have no name any more.
  int task;       // The process, as of pidfd_open.
};

class ProxyServer {
 public:
  ProxyServer(const ProxyDescriptors& descriptors, ProxyContext context);

  // Returns when the task has ended and what it has sent is passed on, or cannot be.
  void Run();

 private:
  using Time = ProxyConnection::Time;

  std::vector<pollfd> MakePolls() const;
  timespec GetPatience(Time now) const;
  void Accept(Time now);
  void Connect(int launcher);
  void OnTaskEnd(Time now);

  const ProxyDescriptors descriptors_;
  ProxyContext context_;
  std::list<ProxyConnection> connections_;
  uint64_t accepted_ = 0;
  Time paused_until_{};  // No launcher is accepted before.
  bool has_task_ended_ = false;
  Time give_up_at_ = Time::max();
};

}  // namespace tools
