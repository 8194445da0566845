// A process may end in any way, with the service in use: with the code that it asked for, silently,
// and nothing stays behind. Sanitizers watch the programs that end, or whatever TAVO_TEST_WRAPPER
// puts before them.
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <memory>
#include <regex>
#include <string>
#include <utility>
#include <vector>

#include "platform/runtime_manager/task_messaging.h"
#include "tests/support/desk_fixture.h"
#include "tests/support/scale.h"

namespace {

using test::WaitUntil;

struct Shape {
  const char* name;
  const char* errors = "";  // What the desk, or Qt, is to say of it on standard error.
};

class ExitTest : public test::DeskTest, public testing::WithParamInterface<Shape> {
 protected:
  void SetUp() override {
    DeskTest::SetUp();
    prctl(PR_SET_CHILD_SUBREAPER, 1);  // Whatever it leaves becomes our child.
    qputenv("PATH", QFile::encodeName(apps_) + ":" + path_);
    Write(QStringLiteral("xdg-open"), "#!/bin/sh\nexec sleep 1000\n");  // Opens for ever.
  }
  void TearDown() override {
    qputenv("PATH", path_);
    DeskTest::TearDown();
  }

  QString PathOf(const char* name) const { return directory_.filePath(QLatin1String(name)); }

  // `listener`: the socket that the program is given as a task, if it is to be one.
  pid_t Start(const char* shape, int listener) const {
    QByteArrayList command = (qgetenv("TAVO_TEST_WRAPPER") + " " TAVO_TEST_EMULATOR).split(' ');
    command.removeAll({});
    command << TAVO_TEST_EXIT_PROGRAM << shape << TAVO_TEST_LIBS << TAVO_TEST_EXIT_PLUGIN;
    std::vector<char*> arguments;
    for (QByteArray& argument : command) arguments.push_back(argument.data());
    arguments.push_back(nullptr);
    const pid_t process = fork();
    if (process != 0) return process;
    for (const auto& [name, descriptor] : {std::pair("output", 1), std::pair("errors", 2)}) {
      dup2(creat(QFile::encodeName(PathOf(name)).constData(), 0600), descriptor);
    }
    if (listener >= 0) {
      dup2(listener, 3);
      qputenv("LISTEN_FDS", "1");
      qputenv("LISTEN_PID", QByteArray::number(getpid()));
    }
    execvp(arguments[0], arguments.data());
    _exit(127);
  }

  std::string Read(const char* name) const {
    QFile file(PathOf(name));
    return file.open(QIODevice::ReadOnly) ? file.readAll().toStdString() : "unreadable";
  }

  const QByteArray path_ = qgetenv("PATH");
};

TEST_P(ExitTest, IsSilentAndComplete) {
  const int runs = test::GetScale();
  for (int run = 0; run < runs && !HasFailure(); ++run) {
    const bool is_task = GetParam().name == std::string("Task");
    const int listener = is_task ? test::ListenAt(PathOf("socket")) : -1;
    const pid_t process = Start(GetParam().name, listener);
    std::unique_ptr<RuntimeManager::TaskMessaging> starter;
    if (is_task) {
      close(listener);
      starter = std::make_unique<RuntimeManager::TaskMessaging>(PathOf("socket"));
      starter->sendMessage({{QStringLiteral("data"), QStringLiteral("end")}});
    }
    int status = -1;
    if (!WaitUntil([&] { return waitpid(process, &status, WNOHANG) == process; })) {
      kill(process, SIGKILL);  // Which fails below, with what it said.
      waitpid(process, &status, 0);
    }
    starter.reset();
    EXPECT_TRUE(WIFEXITED(status)) << "signal " << WTERMSIG(status);
    EXPECT_EQ(42, WEXITSTATUS(status));
    EXPECT_TRUE(WaitUntil([] {
      while (waitpid(-1, nullptr, WNOHANG) > 0) {
      }
      return errno == ECHILD;
    })) << "A process was left.";
    EXPECT_TRUE(std::regex_match(Read("errors"), std::regex(GetParam().errors))) << Read("errors");
    EXPECT_EQ("", Read("output"));
    // Where nobody becomes our child (an emulator may not know how) it may still be at work.
    EXPECT_TRUE(WaitUntil([this] { return Sockets().isEmpty() && Intents().isEmpty(); }))
        << "A socket file was left.";
    QFile::remove(PathOf("socket"));
  }
}

INSTANTIATE_TEST_SUITE_P(
    Shapes, ExitTest,
    testing::Values(Shape{"MainReturns"}, Shape{"ExitInACallback"}, Shape{"ExitOnAThread"},
                    Shape{"StaticBefore"}, Shape{"StaticAfter"},
                    Shape{"NoApplication",
                          "QSocketNotifier: Can only be used with threads started with QThread\n"},
                    Shape{"ApplicationOutlivesAll"}, Shape{"PluginUnloaded"},
                    Shape{"LibraryClosed"},
                    Shape{"MessageOnItsWay",
                          "(tavo-desk: connection closed with [0-9]+ bytes unsent\n)+"},
                    Shape{"ManagerReleased"}, Shape{"QuickExit"}, Shape{"Task"}),
    [](const auto& shape) { return std::string(shape.param.name); });

}  // namespace
