// A connection through `tavo proxy`: from a launcher to the proxy, and from there to the task.
//
// Threads: one at a time.
#pragma once

#include <poll.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "tools/proxy_methods.h"
#include "tools/proxy_pipe.h"

namespace tools {

// What the connections of a proxy share.
struct ProxyContext {
  ProxyRules rules;
  uint64_t seed = 0;
  std::string task;
  int64_t task_pid = 0;
  std::function<void()> kill_task;

  std::vector<uint64_t> kill_counts = {};  // The messages that have gone through, by rule.
};

class ProxyConnection {
 public:
  using Time = ProxyPipe::Time;

  // Takes both sockets over, which must not block. Borrows the context.
  ProxyConnection(ProxyContext& context, uint64_t number, int launcher, int task);
  ~ProxyConnection();
  ProxyConnection(const ProxyConnection&) = delete;
  ProxyConnection& operator=(const ProxyConnection&) = delete;

  // The two sockets, and what is waited for.
  static constexpr size_t kSockets = 2;
  void AddTo(std::vector<pollfd>* sockets) const;
  std::optional<Time> GetDue() const;

  // Moves what can be moved. `sockets` are the two of AddTo, with what has happened.
  void Work(const pollfd* sockets, Time now);

  // The task has ended: what it has sent is still passed on.
  void OnTaskEnd() { to_.Fail(); }

  bool IsOver() const { return to_.IsFinished() && from_.IsFinished(); }

 private:
  ProxyPipe MakePipe(const char* direction, int source, int target);
  Entry ReadEntryOf(const std::string& line) const;
  ProxyRules::Set FindRules(const char* direction, const std::string& line);
  void Count(ProxyRules::Set rules);
  void Cut();

  ProxyContext& context_;
  const uint64_t number_;
  const int launcher_;
  const int task_;
  int64_t launcher_pid_ = 0;
  RequestMethods methods_;            // So that rules know the methods of answers.
  std::vector<uint64_t> cut_counts_;  // The messages that have gone through, by rule.
  ProxyPipe to_;
  ProxyPipe from_;
};

}  // namespace tools
