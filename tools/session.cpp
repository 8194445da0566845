#include "tools/session.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <optional>
#include <streambuf>

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QSocketNotifier>
#include <QTimer>

#include "cw/plugin_registrar.h"
#include "desk/common/quiet_write.h"
#include "desk/common/transfer.h"
#include "desk/embedder/embedder.h"
#include "desk/runtime_manager/task_report.h"
#include "tools/printable.h"
#include "tools/tavo_commands.h"

namespace tools {
namespace {

constexpr int kPatience = 60'000;  // Milliseconds for a reader that reads nothing.
constexpr int kLastWords = 100;    // Milliseconds for what an ended task has still sent.
constexpr int kEndNews = 1000;     // Milliseconds for the news of why a connection is lost.
constexpr int kSettlingTime =
    10'000;  // Milliseconds; a task that does not obey is killed after 5 s.
constexpr double kMaxSeconds = 1'000'000;

constexpr int kSignalCheck = 100;  // Milliseconds between two looks for a signal.

class Interrupted {};

// ---- Signals, as events of the loop ----

volatile std::sig_atomic_t last_signal = 0;
volatile std::sig_atomic_t signal_count = 0;
int signal_pipe[2] = {-1, -1};

void OnSignal(int number) {
  const int before = errno;
  last_signal = number;
  signal_count = signal_count + 1;
  const char byte = 0;
  if (write(signal_pipe[1], &byte, 1) < 0) errno = before;  // A full pipe wakes the loop, too.
  errno = before;
}

void HandleSignals(void (*handler)(int number)) {
  struct sigaction action {};
  action.sa_handler = handler;
  action.sa_flags = SA_RESTART;
  for (const int number : {SIGINT, SIGTERM}) sigaction(number, &action, nullptr);
}

class SignalWatch {
 public:
  SignalWatch() {
    if (pipe2(signal_pipe, O_CLOEXEC | O_NONBLOCK) != 0) {
      throw CommandError(kNotStarted, std::string("a pipe: ") + std::strerror(errno));
    }
    notifier_.emplace(signal_pipe[0], QSocketNotifier::Read);
    QObject::connect(&*notifier_, &QSocketNotifier::activated, &*notifier_, [] {
      char bytes[16];
      while (read(signal_pipe[0], bytes, sizeof bytes) > 0) {
      }
    });
    HandleSignals(OnSignal);
  }
  ~SignalWatch() {
    HandleSignals(SIG_DFL);
    notifier_.reset();
    for (const int end : signal_pipe) close(end);
  }
  SignalWatch(const SignalWatch&) = delete;
  SignalWatch& operator=(const SignalWatch&) = delete;

 private:
  std::optional<QSocketNotifier> notifier_;
};

// ---- Standard output ----

// Writes the log of the library to standard error, except for its lines of normal operation: the
// only one is about a start that fails, which the subcommands tell.
class Log final : public std::streambuf {
 protected:
  int_type overflow(int_type character) override {
    if (character == traits_type::eof()) return traits_type::not_eof(character);
    line_ += traits_type::to_char_type(character);
    if (line_.back() != '\n') return character;
    line_.pop_back();
    RemoveColours();
    if (line_.rfind("[info]", 0) != 0) Session::PrintError(Printable(line_));
    line_.clear();
    return character;
  }

 private:
  // Those that the library writes on a terminal: "\x1b[1;32m". A peer's own are escaped.
  void RemoveColours() {
    for (const char* colour : {"\x1b[1;31m", "\x1b[1;32m", "\x1b[1;33m", "\x1b[90m", "\x1b[0m"}) {
      for (size_t at = 0; (at = line_.find(colour)) != std::string::npos;) {
        line_.erase(at, std::strlen(colour));
      }
    }
  }

  std::string line_;
};

// Keeps standard output for the session. Standard error takes its place for tasks and others.
class Output {
 public:
  Output() : descriptor_(desk::AboveStandard(dup(STDOUT_FILENO))) {
    if (descriptor_ < 0 || fcntl(descriptor_, F_SETFD, FD_CLOEXEC) != 0 ||
        dup2(STDERR_FILENO, STDOUT_FILENO) < 0) {
      throw CommandError(kNotStarted, std::string("standard output: ") + std::strerror(errno));
    }
    former_ = std::cout.rdbuf(&log_);
  }
  ~Output() {
    std::cout.rdbuf(former_);
    dup2(descriptor_, STDOUT_FILENO);
    close(descriptor_);
  }
  Output(const Output&) = delete;
  Output& operator=(const Output&) = delete;

  int Get() const { return descriptor_; }

 private:
  const int descriptor_;
  Log log_;
  std::streambuf* former_ = nullptr;
};

// Writes the line in parts that fit a pipe whose reader has made room. Returns an errno: EINTR when
// a signal has come before there was room.
int WriteLine(int descriptor, const std::string& line) {
  const std::string text = line + '\n';
  for (size_t done = 0; done < text.size();) {
    pollfd room{descriptor, POLLOUT, 0};
    while (poll(&room, 1, kSignalCheck) <= 0) {
      if (last_signal != 0) return EINTR;
    }
    const size_t part = std::min<size_t>(PIPE_BUF, text.size() - done);
    size_t written = 0;
    const int fault = desk::WriteQuietly(descriptor, text.data() + done, part, kPatience, &written);
    if (fault != 0) return fault;
    done += written;
  }
  return 0;
}

// ---- The service ----

desk::Description MakeDescription() {
  const std::string libraries = FindLibraryPath();
  desk::Description description;
  description.directories[desk::kLibraries] = libraries;
  description.arguments = {"--libs-path", libraries};
  return description;
}

}  // namespace

struct Session::World {
  int argc = 1;
  char name[5] = "tavo";
  char* argv[2] = {name, nullptr};
  Output output;
  QCoreApplication application{argc, argv};
  SignalWatch signals;
  QTimer limit;
  desk::Embedder embedder{MakeDescription()};
  cw::PluginRegistrar* const registrar =
      cw::PluginRegistrarManager::GetInstance()->GetRegistrarImpl(embedder.GetContext());
  const std::string library_path = registrar->GetLibraryPath().string();
  const std::unique_ptr<tavo::ManagerWrapper> manager = tavo::ManagerWrapper::Create(registrar);
  std::optional<CommandError> failure;  // What ends the conversation.

  World() { limit.setSingleShot(true); }

  void Fail(int exit_code, const std::string& text) {
    if (!failure) failure.emplace(exit_code, text);
  }
};

Session::Session() : world_(std::make_unique<World>()) {
  World* const world = world_.get();
  if (!world->manager) throw CommandError(kNotStarted, "libtavo.so cannot be used");
  // The socket may still hold what the task has sent before it ended.
  desk::TaskReport::Redirect([world](const QString& news, bool has_ended) {
    QTimer::singleShot(has_ended ? kLastWords : kEndNews, &world->limit,
                       [world, news] { world->Fail(kNotStarted, news.toStdString()); });
  });
}

Session::~Session() {
  desk::TaskReport::Redirect({});
  // Conversations end, so that watchers are told what they have missed.
  QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
}

tavo::ManagerWrapper& Session::GetManager() const { return *world_->manager; }

const std::string& Session::GetLibraryPath() const { return world_->library_path; }

void Session::LimitTime(double seconds, const std::string& fault) {
  World* const world = world_.get();
  world->limit.disconnect();
  world->limit.stop();
  if (!(seconds > 0)) return;
  QObject::connect(&world->limit, &QTimer::timeout, &world->limit,
                   [world, fault] { world->Fail(kTimedOut, fault); });
  constexpr double kMilliseconds = 1000;
  world->limit.start(static_cast<int>(std::ceil(std::min(seconds, kMaxSeconds) * kMilliseconds)));
}

void Session::RunUntil(const std::function<bool()>& is_done) {
  while (!is_done()) {
    if (last_signal != 0) throw Interrupted();
    if (world_->failure) throw CommandError(*world_->failure);
    QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
  }
}

void Session::Settle(const std::function<bool()>& is_done) {
  const int signals_before = signal_count;
  const QDeadlineTimer deadline(kSettlingTime);
  QTimer::singleShot(kSettlingTime, &world_->limit, [] {});  // Wakes the loop.
  while (!is_done() && signal_count == signals_before && !deadline.hasExpired()) {
    QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
  }
}

void Session::Print(const std::string& line) const {
  const int fault = WriteLine(world_->output.Get(), line);
  if (fault == EINTR) throw Interrupted();
  if (fault == EPIPE) throw CommandError(kFailed, "");  // A reader that has enough is no fault.
  if (fault != 0) {
    throw CommandError(kFailed, std::string("standard output: ") + std::strerror(fault));
  }
}

void Session::PrintError(const std::string& line) { WriteLine(STDERR_FILENO, line); }

// libtavo.so is beside its runtime manager, a function of which is asked for its file.
std::string FindLibraryPath() {
  Dl_info library{};
  if (dladdr(reinterpret_cast<void*>(&desk::TaskReport::Redirect), &library) == 0) {
    throw CommandError(kNotStarted, "libtavo.so cannot be found");
  }
  return std::filesystem::absolute(library.dli_fname).lexically_normal().parent_path().string();
}

void RunSession(const std::function<void(Session& session)>& talk) {
  try {
    Session session;
    talk(session);
  } catch (const Interrupted&) {
  }
  if (last_signal != 0) raise(last_signal);  // Its action is the default one again.
}

}  // namespace tools
