#include "tools/task_server.h"

#include <sys/socket.h>

#include <algorithm>
#include <cstdint>
#include <utility>

#include "tools/tavo_commands.h"

namespace tools {
namespace {

constexpr int kSocket = 3;  // docs/desk.md
constexpr size_t kMaxWaiting = 65'536;
constexpr size_t kMaxWaitingSize = size_t{64} << 20;  // Of the values.

}  // namespace

void ExpectStarter() {
  int is_listening = 0;
  socklen_t size = sizeof is_listening;
  const int result = getsockopt(kSocket, SOL_SOCKET, SO_ACCEPTCONN, &is_listening, &size);
  if (result == 0 && is_listening != 0) return;
  throw CommandError(kWrongUsage,
                     "this plays a task, and nobody has started it as one (descriptor 3 is no "
                     "listening socket). --install DIR writes a desktop entry for it; applications "
                     "find the entry with TAVO_DESK_PATH=DIR");
}

TaskServer::TaskServer(Session& session)
    : session_(session), server_(session.GetManager().CreateRpcServer()) {
  if (!server_) throw CommandError(kNotStarted, "libtavo.so offers no server");
  timer_.setSingleShot(true);
  timer_.setTimerType(Qt::PreciseTimer);
}

TaskServer::~TaskServer() = default;

bool TaskServer::SendLater(Clock::duration delay, cw::EncodableValue value, SendFunction send) {
  if (delay <= Clock::duration::zero()) {
    send(std::move(value));
    return true;
  }
  forge::Buffer bytes = value.Serialize();
  const bool is_full =
      waiting_.size() >= kMaxWaiting || waiting_size_ + bytes.GetSize() > kMaxWaitingSize;
  if (is_full) return false;
  waiting_size_ += bytes.GetSize();
  waiting_.emplace(Clock::now() + delay, Waiting{std::move(bytes), std::move(send)});
  timer_.start(0);  // Serve sets it to the first time.
  return true;
}

void TaskServer::SendDue() {
  const auto now = Clock::now();  // What is added meanwhile waits for the next turn of the loop.
  while (!waiting_.empty() && waiting_.begin()->first <= now) {
    const auto due = waiting_.extract(waiting_.begin());
    waiting_size_ -= due.mapped().value.GetSize();
    due.mapped().send(cw::EncodableValue::Deserialize(due.mapped().value));
  }
  if (waiting_.empty()) return timer_.stop();
  constexpr std::chrono::milliseconds kLongest = std::chrono::hours(1);
  const auto left =
      std::chrono::ceil<std::chrono::milliseconds>(waiting_.begin()->first - Clock::now());
  timer_.start(std::clamp(left, std::chrono::milliseconds(0), kLongest));
}

void TaskServer::Serve() {
  server_->Run();
  for (;;) {
    session_.RunUntil([this] {
      SendDue();
      return false;
    });
  }
}

}  // namespace tools
