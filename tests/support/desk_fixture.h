// A desk of its own for each test: directories for applications and sockets, an event loop.
#pragma once

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <fstream>
#include <optional>

#include <QCoreApplication>
#include <QDir>
#include <QJsonObject>
#include <QTemporaryDir>

#include "platform/runtime_manager/task.h"
#include "tests/support/deadline.h"
#include "tests/support/test_base.h"

namespace test {

inline bool IsGone(pid_t pid) { return kill(pid, 0) != 0 && errno == ESRCH; }

// A local socket that `use` binds or connects to the path.
inline int OpenSocket(const QString& path, int (*use)(int, const sockaddr*, socklen_t)) {
  sockaddr_un address{AF_UNIX, ""};
  qstrncpy(address.sun_path, QFile::encodeName(path).constData(), sizeof address.sun_path);
  const int end = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  EXPECT_EQ(0, use(end, reinterpret_cast<const sockaddr*>(&address), sizeof address));
  return end;
}

inline int ListenAt(const QString& path) {
  const int end = OpenSocket(path, bind);
  EXPECT_EQ(0, listen(end, 16));
  return end;
}

inline QByteArray Read(const QString& path) {
  QFile file(path);
  return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// What `call` hands to the callback that it is given; which comes later.
template <typename Outcome, typename Call>
Outcome Await(const Call& call) {
  std::optional<Outcome> outcome;
  call([&](const Outcome& told) { outcome = told; });
  EXPECT_FALSE(outcome) << "The callback came within the call.";
  EXPECT_TRUE(WaitUntil([&] { return outcome.has_value(); }));
  return outcome.value();
}

// The error's text; empty when the task started.
inline std::string Start(RuntimeManager::Task& task) {
  const auto start = [&](const auto& done) { task.start(done); };
  return Await<RuntimeManager::Error>(start).message().toStdString();
}

inline void Stop(RuntimeManager::Task& task, RuntimeManager::Task::StopFlags flags = {}) {
  const auto stop = [&](const auto& done) { task.stop(flags, done); };
  EXPECT_FALSE(Await<RuntimeManager::Error>(stop));
}

class DeskTest : public TestBase {
 protected:
  void SetUp() override {
    ASSERT_TRUE(QDir().mkpath(apps_));
    qputenv("TAVO_DESK_PATH", QFile::encodeName(apps_) + ":" TAVO_TEST_TASKS);
    qputenv("XDG_RUNTIME_DIR", QFile::encodeName(directory_.path()));
    qputenv("XDG_DATA_HOME", QFile::encodeName(directory_.path()));
    WrapIn("");
    for (const char* name : {"TAVO_DESK_OPEN_URI", "TAVO_DESK_RECORD"}) qunsetenv(name);
    QCoreApplication::processEvents();
    TestBase::SetUp();
  }

  void TearDown() override {  // No file of a socket or an intent may be left.
    EXPECT_TRUE(WaitUntil([this] { return Sockets().isEmpty(); }));
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    if (!Intents().isEmpty()) app_.reset();  // Withdraws what the test itself has offered.
    TestBase::TearDown();
    app_.reset();
    EXPECT_EQ(QStringList(), Intents());
  }

  // A wrapper in front of the emulator, if there is one.
  static void WrapIn(const QByteArray& command) {
    qputenv("TAVO_DESK_WRAPPER", command + " " TAVO_TEST_EMULATOR);
  }

  // An application of the test's own; by default a script.
  void Write(const QString& name, const QByteArray& content, mode_t mode = 0755) const {
    const QString path = apps_ + QLatin1Char('/') + name;
    QDir().mkpath(QFileInfo(path).path());
    EXPECT_TRUE(std::ofstream(path.toStdString()) << content.constData());
    chmod(path.toLocal8Bit(), mode);
  }

  QStringList Sockets(const char* folder = "/tavo") const {
    const QDir files(directory_.path() + QLatin1String(folder));
    return files.entryList(QDir::Files | QDir::System);
  }
  QStringList Intents() const { return Sockets("/tavo/intents"); }

  const QTemporaryDir directory_;
  const QString apps_ = directory_.filePath(QStringLiteral("apps"));
  int argc_ = 1;
  char* argv_[2] = {program_invocation_name, nullptr};
  std::optional<QCoreApplication> app_{std::in_place, argc_, argv_};  // Without: no event loop.
};

}  // namespace test
