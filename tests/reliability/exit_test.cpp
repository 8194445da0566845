// A process may end in any way, with the service in use: with the code that it asked for, silently,
// and nothing stays behind. Sanitizers watch the programs that end, or whatever TAVO_TEST_WRAPPER
// puts before them.
#include <sys/prctl.h>
#include <sys/wait.h>

#include <fstream>
#include <iterator>
#include <regex>

#include "platform/runtime_manager/task_messaging.h"
#include "tests/support/desk_fixture.h"
#include "tests/support/scale.h"

namespace {

using test::WaitUntil;

// The shell's arguments are the shape and a file for the output.
constexpr char kCommand[] =
    "LISTEN_FDS=1 LISTEN_PID=$$ exec $TAVO_TEST_WRAPPER " TAVO_TEST_EMULATOR
    " " TAVO_TEST_EXIT_PROGRAM " $0 " TAVO_TEST_LIBS " " TAVO_TEST_EXIT_PLUGIN " >$1 2>&1";

class ExitTest : public test::DeskTest, public testing::WithParamInterface<std::string> {};

TEST_P(ExitTest, IsSilentAndComplete) {
  prctl(PR_SET_CHILD_SUBREAPER, 1);  // Whatever it leaves becomes our child.
  qputenv("PATH", QFile::encodeName(apps_) + ":" + qgetenv("PATH"));
  Write(QStringLiteral("xdg-open"), "#!/bin/sh\nexec sleep 1000\n");  // Opens for ever.
  const std::string output = directory_.path().toStdString() + "/output";
  std::string expected;
  if (GetParam() == "MessageOnItsWay") {
    expected = "(tavo-desk: connection closed with [0-9]+ bytes unsent\n)+";
  } else if (GetParam() == "NoApplication") {
    expected = "QSocketNotifier: Can only be used with threads .*\n";
  }
  for (int run = 0; run < test::GetScale() && !HasFailure(); ++run) {
    const QString path = directory_.filePath(QString::number(run));
    const int listener = test::ListenAt(path);
    const pid_t process = fork();
    if (process == 0) {
      dup2(listener, 3);
      execl("/bin/sh", "sh", "-c", kCommand, GetParam().c_str(), output.c_str(), nullptr);
    }
    close(listener);
    RuntimeManager::TaskMessaging starter(path);
    starter.sendMessage({{QStringLiteral("data"), QStringLiteral("end")}});
    int status = -1;
    EXPECT_TRUE(WaitUntil([&] { return waitpid(process, &status, WNOHANG) == process; }));
    kill(process, SIGKILL);  // If it is still there.
    EXPECT_TRUE(WIFEXITED(status)) << "signal " << WTERMSIG(status);
    EXPECT_EQ(42, WEXITSTATUS(status));
    EXPECT_TRUE(WaitUntil([] {
      while (waitpid(-1, nullptr, WNOHANG) > 0) {
      }
      return errno == ECHILD;
    })) << "A process was left.";
    std::ifstream file(output);
    const std::string told(std::istreambuf_iterator<char>(file), {});
    EXPECT_TRUE(std::regex_match(told, std::regex(expected))) << told;
    // Where nobody becomes our child (an emulator may not know how) it may still be at work.
    EXPECT_TRUE(WaitUntil([this] { return Sockets().isEmpty() && Intents().isEmpty(); }))
        << "A socket file was left.";
  }
}

const auto kShapes = testing::Values(
    "ApplicationOutlivesAll", "ExitInACallback", "ExitInASignalHandler", "ExitOnAThread",
    "MainReturns", "ManagerReleased", "MessageOnItsWay", "NoApplication", "PluginUnloaded",
    "QuickExit", "StaticAfter", "StaticBefore", "Task");
INSTANTIATE_TEST_SUITE_P(Shapes, ExitTest, kShapes, [](const auto& shape) { return shape.param; });

}  // namespace
