// A desk of its own for each test: directories for applications and sockets, an event loop.
#pragma once

#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QJsonObject>
#include <QTemporaryDir>

#include "platform/runtime_manager/task.h"
#include "tests/support/deadline.h"
#include "tests/support/test_base.h"

namespace test {

#ifdef TAVO_TEST_SANITIZED
constexpr bool kRunsWithoutDescriptors = false;  // The sanitizer needs some for its own checks.
#else
constexpr bool kRunsWithoutDescriptors = true;
#endif

// What this process may have of a resource; RLIM_INFINITY: all that the machine allows.
inline void LimitTo(rlim_t most, decltype(RLIMIT_NOFILE) resource) {
  rlimit limit{};
  getrlimit(resource, &limit);
  limit.rlim_cur = std::min(most, limit.rlim_max);
  EXPECT_EQ(0, setrlimit(resource, &limit));
}

inline bool IsGone(pid_t process) { return kill(process, 0) != 0 && errno == ESRCH; }

// A local socket that `use` binds or connects to the path.
inline int OpenSocket(const QString& path, int (*use)(int, const sockaddr*, socklen_t)) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  qstrncpy(address.sun_path, QFile::encodeName(path).constData(), sizeof address.sun_path);
  const int descriptor = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  EXPECT_EQ(0, use(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address));
  return descriptor;
}

inline int ListenAt(const QString& path) {
  const int descriptor = OpenSocket(path, bind);
  EXPECT_EQ(0, listen(descriptor, 16));
  return descriptor;
}

// The error's text; empty when the task started.
inline std::string Start(RuntimeManager::Task& task) {
  const auto outcome = std::make_shared<std::optional<std::string>>();
  task.start([outcome](const auto& error) { *outcome = error.message().toStdString(); });
  EXPECT_FALSE(*outcome) << "The callback came within start.";
  EXPECT_TRUE(WaitUntil([&outcome] { return outcome->has_value(); }));
  return outcome->value_or("no outcome");
}

inline void Stop(RuntimeManager::Task& task, RuntimeManager::Task::StopFlags flags = {}) {
  const auto stopped = std::make_shared<bool>();
  task.stop(flags, [stopped](const auto& error) { *stopped = !error; });
  EXPECT_FALSE(*stopped) << "The callback came within stop.";
  EXPECT_TRUE(WaitUntil([&stopped] { return *stopped; }));
}

class DeskTest : public TestBase {
 protected:
  void SetUp() override {
    ASSERT_TRUE(QDir(directory_.path()).mkpath(QStringLiteral("apps")));
    apps_ = directory_.filePath(QStringLiteral("apps"));
    qputenv("TAVO_DESK_PATH", QFile::encodeName(apps_) + ":" TAVO_TEST_TASKS);
    qputenv("XDG_RUNTIME_DIR", QFile::encodeName(directory_.path()));
    qputenv("XDG_DATA_HOME", QFile::encodeName(directory_.path()));
    qputenv("TAVO_DESK_WRAPPER", TAVO_TEST_EMULATOR);  // Empty where none is needed.
    app_ = std::make_unique<QCoreApplication>(argc_, argv_);
    QCoreApplication::processEvents();
    TestBase::SetUp();
  }

  void TearDown() override {
    EXPECT_TRUE(WaitUntil([this] { return Sockets().isEmpty(); })) << "A socket file was left.";
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    TestBase::TearDown();
    app_.reset();
    EXPECT_EQ(QStringList(), Intents()) << "An intent was left.";
  }

  // Applications that the host runs by itself: scripts, and what cannot be started at all.
  static void RunNatively() { qunsetenv("TAVO_DESK_WRAPPER"); }

  // A wrapper in front of the emulator, if there is one.
  static void WrapIn(const QByteArray& command) {
    qputenv("TAVO_DESK_WRAPPER", command + " " TAVO_TEST_EMULATOR);
  }

  // An application of the test's own; by default a script.
  QString Write(const QString& name, const QByteArray& content, mode_t mode = 0755) {
    const QString path = QDir(apps_).filePath(name);
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    EXPECT_TRUE(file.open(QIODevice::WriteOnly) && file.write(content) == content.size());
    file.close();
    chmod(QFile::encodeName(path).constData(), mode);
    return path;
  }

  QStringList Sockets() const {
    return QDir(directory_.filePath(QStringLiteral("tavo"))).entryList(QDir::Files | QDir::System);
  }
  QStringList Intents() const {
    return QDir(directory_.filePath(QStringLiteral("tavo/intents")))
        .entryList(QDir::Files | QDir::System);
  }

  // From here on the process has no application object, hence no event loop.
  void StopApplication() { app_.reset(); }

  QTemporaryDir directory_;
  QString apps_;

 private:
  char name_[5] = "test";
  char* argv_[2] = {name_, nullptr};
  int argc_ = 1;
  std::unique_ptr<QCoreApplication> app_;
};

}  // namespace test
