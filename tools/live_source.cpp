#include "tools/live_source.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <deque>
#include <stdexcept>
#include <utility>
#include <vector>

#include "desk/common/transfer.h"
#include "desk/common/unix_socket.h"
#include "desk/runtime_manager/socket_directory.h"
#include "desk/runtime_manager/socket_files.h"
#include "desk/runtime_manager/watchers.h"
#include "tools/descriptor.h"

namespace tools {
namespace {

using Clock = std::chrono::steady_clock;

constexpr size_t kMaxPacket = 256 << 10;       // In bytes. A larger one counts as dropped.
constexpr size_t kMaxReadAtOnce = kMaxPacket;  // From one sender: the others must not wait.
constexpr size_t kMaxSenders = 512;            // Others wait to be accepted.

constexpr char kDropped[] = R"({"event":"dropped","count":1})";

[[noreturn]] void Fail(const std::string& what) {
  throw std::runtime_error("the session cannot be watched: " + what);
}

QByteArray PrepareDirectory() {
  QByteArray directory = desk::GetWatchDirectory();
  QString error;
  if (!desk::MakePrivateDirectory(desk::GetSharedDirectory(), &error) ||
      !desk::MakePrivateDirectory(directory, &error)) {
    Fail(error.toStdString());
  }
  desk::SweepSockets(directory.constData(), nullptr, nullptr);
  return directory;
}

// A listening socket in the watch directory.
class WatchSocket {
 public:
  // The processes of the desk must not find the socket before it listens.
  WatchSocket()
      : listener_(desk::AboveStandard(
            socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0))) {
    const QByteArray directory = PrepareDirectory();
    const QByteArray name = QByteArray::number(getpid()) + '-' +
                            QByteArray::number(qint64{Clock::now().time_since_epoch().count()});
    const QByteArray hidden = directory + "/." + name;
    path_ = directory + '/' + name;
    if (listener_.Get() < 0 || !desk::BindTo(listener_.Get(), hidden)) Fail(Told(hidden));
    if (chmod(hidden.constData(), 0600) == 0 && listen(listener_.Get(), SOMAXCONN) == 0 &&
        rename(hidden.constData(), path_.constData()) == 0) {
      return;
    }
    const std::string cause = Told(hidden);
    unlink(hidden.constData());
    Fail(cause);
  }
  ~WatchSocket() { unlink(path_.constData()); }
  WatchSocket(const WatchSocket&) = delete;
  WatchSocket& operator=(const WatchSocket&) = delete;

  int GetDescriptor() const { return listener_.Get(); }

 private:
  static std::string Told(const QByteArray& path) {
    return path.toStdString() + ": " + std::strerror(errno);
  }

  const Descriptor listener_;
  QByteArray path_;
};

class LiveSource final : public ILineSource {
 public:
  Got Next(std::string* line, Clock::time_point deadline) override {
    if (lines_.empty() && !Receive(deadline)) return Got::kNothing;
    if (lines_.empty()) return Got::kNothing;
    *line = std::move(lines_.front());
    lines_.pop_front();
    return Got::kLine;
  }

 private:
  // Waits for packets, and returns false when none came until the deadline or a signal arrived.
  bool Receive(Clock::time_point deadline) {
    while (lines_.empty()) {
      std::vector<pollfd> polled{{socket_.GetDescriptor(), POLLIN, 0}};
      if (senders_.size() >= kMaxSenders) polled[0].events = 0;
      for (const Descriptor& sender : senders_) polled.push_back({sender.Get(), POLLIN, 0});
      if (poll(polled.data(), polled.size(), Timeout(deadline)) <= 0) return false;
      for (size_t i = senders_.size(); i > 0; --i) {
        if (polled[i].revents != 0) Read(i - 1);
      }
      if (polled[0].revents != 0) Accept();
    }
    return true;
  }

  // Rounded up, because a loop with a short rest would not wait at all.
  static int Timeout(Clock::time_point deadline) {
    using std::chrono::milliseconds;
    const auto rest = std::chrono::ceil<milliseconds>(deadline - Clock::now()).count();
    return static_cast<int>(std::clamp<int64_t>(rest, 0, 60'000));
  }

  void Accept() {
    Descriptor sender(desk::AboveStandard(
        accept4(socket_.GetDescriptor(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK)));
    if (sender.Get() >= 0) {
      if (desk::IsOwnUser(sender.Get())) senders_.push_back(std::move(sender));
    } else if (!desk::IsTransient(errno) && errno != ECONNABORTED) {
      Fail(std::strerror(errno));
    }
  }

  void Read(size_t index) {
    for (size_t read = 0; read < kMaxReadAtOnce;) {
      const ssize_t size =
          recv(senders_[index].Get(), buffer_.data(), buffer_.size(), MSG_DONTWAIT | MSG_TRUNC);
      if (size < 0 && desk::IsTransient(errno)) return;
      if (size <= 0) {
        senders_.erase(senders_.begin() + static_cast<std::ptrdiff_t>(index));
        return;
      }
      const auto length = static_cast<size_t>(size);
      read += length;
      length <= buffer_.size() ? lines_.emplace_back(buffer_.data(), length)
                               : lines_.emplace_back(kDropped);
    }
  }

  const WatchSocket socket_;
  std::vector<Descriptor> senders_;
  std::vector<char> buffer_ = std::vector<char>(kMaxPacket);
  std::deque<std::string> lines_;
};

}  // namespace

std::unique_ptr<ILineSource> MakeLiveSource() { return std::make_unique<LiveSource>(); }

}  // namespace tools
