#include "tools/proxy_connection.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <iostream>
#include <stdexcept>

namespace tools {
namespace {

int64_t GetPeerOf(int socket) {
  ucred peer{};
  socklen_t size = sizeof peer;
  return getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 ? peer.pid : 0;
}

// While nothing is to be read or written, only a hang-up is told; when that does not matter,
// nothing.
pollfd MakePoll(int socket, const ProxyPipe& incoming, const ProxyPipe& outgoing) {
  short events = 0;
  if (incoming.WantsToRead()) events |= POLLIN;
  if (outgoing.WantsToWrite()) events |= POLLOUT;
  return {events == 0 && outgoing.IsFinished() ? -1 : socket, events, 0};
}

// The end of what comes in shows when it is read. After a hang-up nobody reads what goes out.
void Move(const pollfd& socket, ProxyPipe* incoming, ProxyPipe* outgoing, ProxyPipe::Time now) {
  if (socket.revents == 0) return;
  if ((socket.revents & (POLLHUP | POLLERR)) != 0) outgoing->Fail();
  if ((socket.events & POLLIN) != 0) incoming->Read(now);
  if ((socket.events & POLLOUT) != 0) outgoing->Write(now);
}

}  // namespace

ProxyConnection::ProxyConnection(ProxyContext& context, uint64_t number, int launcher, int task)
    : context_(context),
      number_(number),
      launcher_(launcher),
      task_(task),
      launcher_pid_(GetPeerOf(launcher)),
      cut_counts_(context.rules.GetSize()),
      to_(MakePipe("to", launcher, task)),
      from_(MakePipe("from", task, launcher)) {}

ProxyConnection::~ProxyConnection() {
  close(launcher_);
  close(task_);
}

// Each direction of each connection makes its own choices.
ProxyPipe ProxyConnection::MakePipe(const char* direction, int source, int target) {
  const uint64_t seed = context_.seed ^ ((number_ * 2 + (source == task_ ? 1 : 0)) << 32);
  return {source,
          target,
          ProxyStream(context_.rules, Random(seed).Next()),
          {[this, direction](const std::string& line) { return FindRules(direction, line); },
           [this](ProxyRules::Set rules) { Count(rules); }}};
}

void ProxyConnection::AddTo(std::vector<pollfd>* sockets) const {
  sockets->push_back(MakePoll(launcher_, to_, from_));
  sockets->push_back(MakePoll(task_, from_, to_));
}

std::optional<ProxyConnection::Time> ProxyConnection::GetDue() const {
  const auto to = to_.GetDue();
  const auto from = from_.GetDue();
  return to && from ? std::min(to, from) : to ? to : from;
}

void ProxyConnection::Work(const pollfd* sockets, Time now) {
  Move(sockets[0], &to_, &from_, now);
  Move(sockets[1], &from_, &to_, now);
  if (to_.GetDue()) to_.Write(now);
  if (from_.GetDue()) from_.Write(now);
  if (IsOver() || (!to_.HasLongLine() && !from_.HasLongLine())) return;
  Cut();
  std::cerr << "tavo proxy: connection dropped: a line of more than " << ProxyPipe::kMaxLine
            << " bytes\n";
}

// A line that is no message has a direction and a connection only.
Entry ProxyConnection::ReadEntryOf(const std::string& line) const {
  try {
    return ReadEntry(R"({"direction":"","message":)" + line + '}');
  } catch (const std::runtime_error&) {
    return {};
  }
}

ProxyRules::Set ProxyConnection::FindRules(const char* direction, const std::string& line) {
  Entry entry;
  if (context_.rules.HaveTerms()) {
    entry = ReadEntryOf(line);
    entry.task = context_.task;
    entry.task_pid = context_.task_pid;
    entry.starter_pid = launcher_pid_;
    entry.connection = std::to_string(number_);
  }
  entry.direction = direction;
  if (context_.rules.HaveTerms()) methods_.Take(&entry);
  return context_.rules.Find(entry);
}

void ProxyConnection::Count(ProxyRules::Set rules) {
  for (size_t i = 0; rules != 0; ++i, rules >>= 1) {
    const ProxyRule& rule = context_.rules[i];
    const bool cuts = rule.fault == Fault::kCutAfter;
    if ((rules & 1) == 0 || (!cuts && rule.fault != Fault::kKillAfter)) continue;
    uint64_t& count = cuts ? cut_counts_[i] : context_.kill_counts[i];
    if (++count != static_cast<uint64_t>(rule.amount)) continue;
    cuts ? Cut() : context_.kill_task();
  }
}

// Both directions at once: what is due in the other one does not go on either.
void ProxyConnection::Cut() {
  to_.Fail();
  from_.Fail();
}

}  // namespace tools
