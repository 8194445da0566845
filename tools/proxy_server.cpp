#include "tools/proxy_server.h"

#include <signal.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iostream>
#include <utility>

#include "desk/common/transfer.h"
#include "desk/common/unix_socket.h"

namespace tools {
namespace {

using Clock = std::chrono::steady_clock;

// So long the last messages of a task may take.
constexpr auto kMaxFarewell = std::chrono::seconds(4);
constexpr auto kAcceptPause = std::chrono::milliseconds(100);
constexpr auto kMaxWait = std::chrono::hours(1);

enum Poll : size_t { kTask, kListener, kFirstConnection };

void Tell(const std::string& what) {
  std::cerr << "tavo proxy: " << what << ": " << std::strerror(errno) << '\n';
}

}  // namespace

ProxyServer::ProxyServer(const ProxyDescriptors& descriptors, ProxyContext context)
    : descriptors_(descriptors), context_(std::move(context)) {
  context_.kill_counts.resize(context_.rules.GetSize());
  context_.kill_task = [task = descriptors.task] {
    syscall(SYS_pidfd_send_signal, task, SIGKILL, nullptr, 0);
  };
}

void ProxyServer::Run() {
  while (!has_task_ended_ || (!connections_.empty() && Clock::now() < give_up_at_)) {
    std::vector<pollfd> polls = MakePolls();
    const timespec patience = GetPatience(Clock::now());
    if (ppoll(polls.data(), polls.size(), &patience, nullptr) < 0) continue;  // Interrupted.
    const Time now = Clock::now();
    const pollfd* sockets = polls.data() + kFirstConnection;
    for (ProxyConnection& connection : connections_) {
      connection.Work(sockets, now);
      sockets += ProxyConnection::kSockets;
    }
    if (polls[kTask].revents != 0) OnTaskEnd(now);
    if (!has_task_ended_ && polls[kListener].revents != 0) Accept(now);
    connections_.remove_if([](const ProxyConnection& connection) { return connection.IsOver(); });
  }
}

std::vector<pollfd> ProxyServer::MakePolls() const {
  const bool is_paused = paused_until_ > Clock::now();
  std::vector<pollfd> polls(kFirstConnection);
  polls[kTask] = {has_task_ended_ ? -1 : descriptors_.task, POLLIN, 0};
  polls[kListener] = {has_task_ended_ || is_paused ? -1 : descriptors_.listener, POLLIN, 0};
  for (const ProxyConnection& connection : connections_) connection.AddTo(&polls);
  return polls;
}

timespec ProxyServer::GetPatience(Time now) const {
  Time end = std::min(now + kMaxWait, give_up_at_);
  if (paused_until_ > now) end = std::min(end, paused_until_);
  for (const ProxyConnection& connection : connections_) {
    if (const auto due = connection.GetDue()) end = std::min(end, *due);
  }
  const auto left = std::chrono::nanoseconds(std::max(end - now, Clock::duration::zero())).count();
  return {static_cast<time_t>(left / 1'000'000'000), static_cast<long>(left % 1'000'000'000)};
}

void ProxyServer::Accept(Time now) {
  const int launcher = desk::AboveStandard(
      accept4(descriptors_.listener, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
  if (launcher >= 0) return Connect(launcher);
  if (errno == EAGAIN || errno == EINTR || errno == ECONNABORTED) return;
  if (paused_until_ == Time()) Tell("a connection has to wait");  // Once.
  paused_until_ = now + kAcceptPause;
}

void ProxyServer::Connect(int launcher) {
  const int task =
      desk::AboveStandard(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  const QByteArray path = "/proc/self/fd/" + QByteArray::number(descriptors_.task_path);
  const bool is_own = desk::IsOwnUser(launcher);
  if (is_own && task >= 0 && desk::ConnectTo(task, path)) {
    connections_.emplace_back(context_, ++accepted_, launcher, task);
    return;
  }
  if (!is_own) errno = EACCES;
  Tell("connection dropped");
  close(launcher);
  if (task >= 0) close(task);
}

void ProxyServer::OnTaskEnd(Time now) {
  has_task_ended_ = true;
  give_up_at_ = now + kMaxFarewell;
  close(descriptors_.listener);  // Whoever still connects is refused.
  for (ProxyConnection& connection : connections_) connection.OnTaskEnd();
}

}  // namespace tools
