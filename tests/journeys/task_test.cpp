#include "platform/runtime_manager/task.h"

#include <functional>
#include <thread>

#include <QJsonArray>

#include "platform/runtime_manager/task_messaging.h"
#include "tests/support/desk_fixture.h"

namespace {

using RuntimeManager::Task;
using RuntimeManager::TaskMessaging;
using test::IsGone;
using test::Stop;
using test::WaitUntil;

// A started task, which does what it is asked.
struct Running {
  explicit Running(const QStringList& arguments = {}) {
    task->withIpcSocket(true);
    task->withArguments(arguments);
    EXPECT_EQ("", test::Start(*task));
  }

  QJsonObject Ask(const char* what) const {
    TaskMessaging messaging(task->socketPath());
    return test::Await<QJsonObject>([&](const auto& done) {
      QObject::connect(&messaging, &TaskMessaging::messageReceived, done);
      messaging.sendMessage({{"do", what}});
    });
  }
  pid_t AskPid(const char* what = "describe") const { return Ask(what)["pid"].toInt(); }

  std::unique_ptr<Task> task = std::make_unique<Task>("desk_task");
};

struct Row {
  const char* name;
  QByteArray told;
  const char* place = "unused";  // A file of the application's; for desk_task a variable.
  QByteArray content = {};
};

using TaskTest = test::DeskTest;

TEST_F(TaskTest, ApplicationGetsItsSocketItsArgumentsAndNothingElse) {
  WrapIn("env 'MARK=a b'");
  const QStringList arguments{"--libs-path", "/a b", QString::fromUtf8("\xC3\xA9")};
  const Running running(arguments);
  const QJsonObject told = running.Ask("describe");
  const int pid = told["pid"].toInt();
  const QJsonObject expected{{"pid", pid},
                             {"parent", told["parent"]},
                             {"group", pid},
                             {"arguments", QJsonArray::fromStringList(arguments)},
                             {"descriptors", QJsonArray{0, 1, 2, 3}},
                             {"environment", QJsonArray{QString::number(pid), "1", "tavo", "a b"}},
                             {"environment now", QJsonArray{"unset", "unset", "unset", "a b"}},
                             {"blocks", true}};
  EXPECT_EQ(expected, told);
  EXPECT_EQ(1, Sockets().size());
  Stop(*running.task);
  EXPECT_TRUE(IsGone(pid));
  EXPECT_EQ(QStringList(), Sockets());
}

TEST_F(TaskTest, ApplicationIsFoundInTheOrderThatDesktopUsersExpect) {
  qunsetenv("TAVO_DESK_WRAPPER");
  const QByteArray apps = QFile::encodeName(apps_);
  const QByteArray here = QFile::encodeName(QDir::currentPath());
  qputenv("TAVO_DESK_PATH", apps + ":" + apps + "/later");
  // Each application tells which one it is.
  const auto script = [&apps](const QByteArray& name) {
    return "#!/bin/sh\nprintf '%s:' " + name + " \"$@\" \"$PWD\" >" + apps + "/out";
  };
  Write("bin/it", script("entry"));
  const QByteArray entry = "[Desktop Entry]\nName=The Name\nExec=" + apps + "/bin/it ";
  const QByteArray words = "one \"two three\" %U --x=%f 100%% %c \\\\\\\\\nPath=" + apps;
  const QByteArray entry_told = "entry:one:two three:--x=:100%:The Name:\\:last:" + apps;
  const Row rows[] = {
      {"plain", "later:last:" + here, "later/plain", script("later")},
      {"plain", "first:last:" + here, "plain", script("first")},
      {"plain", entry_told, "plain.desktop", entry + words},
      {"xdg", "entry:last:" + here, "../applications/xdg.desktop", entry},
      {"xdg", "later:last:" + here, "later/xdg", script("later")},
  };
  for (const Row& row : rows) {
    Write(row.place, row.content);
    Task task(row.name);
    task.withArguments({"last"});
    EXPECT_EQ("", test::Start(task));
    const auto has_told = [&] { return test::Read(apps_ + "/out") == row.told + ":"; };
    EXPECT_TRUE(WaitUntil(has_told)) << test::Read(apps_ + "/out").data();
    QFile::remove(apps_ + "/out");
  }
}

TEST_F(TaskTest, FailedStartNamesTheApplicationAndTheCause) {
  qunsetenv("TAVO_DESK_WRAPPER");
  Write("hidden", "#!/bin/sh\n");
  Write("data", "no program", 0644);
  Write("open/tavo/any", "");
  const QByteArray entry = "[Desktop Entry]\nExec=";
  const Row rows[] = {
      {"missing", "there is no such application"},
      {"hidden", "there is no such application", "hidden.desktop", entry + "it\nHidden=true"},
      {"", "this is not a valid name of an application"},
      {"../apps/hidden", "this is not a valid name of an application"},
      {"data", "Permission denied"},
      {"exec", "there is no program \"nowhere\"", "exec.desktop", entry + "nowhere %f"},
      {"lost", "its directory: No such", "lost.desktop", entry + "/bin/true\nPath=/nonexistent"},
      {"desk_task", "/apps/open/tavo is not a directory of this user with mode 0700",
       "XDG_RUNTIME_DIR", QFile::encodeName(apps_ + "/open")},
      {"desk_task", "unusable TAVO_DESK_WRAPPER: there is no program", "TAVO_DESK_WRAPPER", "no"},
  };
  for (const Row& row : rows) {
    const QByteArray name = row.name;
    if (name == "desk_task") qputenv(row.place, row.content);
    if (name != "desk_task") Write(row.place, row.content);
    Task task(row.name);
    task.withIpcSocket(true);
    const QByteArray error = QByteArray::fromStdString(test::Start(task));
    EXPECT_TRUE(error.startsWith("Application \"" + name + "\" could not be started: "));
    EXPECT_TRUE(error.contains(row.told)) << error.data();
  }
}

// A runtime directory in which others may write is none; its sockets would not be safe there.
TEST_F(TaskTest, WithoutARuntimeDirectoryThePrivateOneIsRemovedInTheEnd) {
  qputenv("TMPDIR", QFile::encodeName(directory_.path()));
  chmod(QFile::encodeName(apps_).constData(), 0770);
  for (const QString& runtime : {QString(), QString("/nonexistent"), apps_}) {
    qputenv("XDG_RUNTIME_DIR", QFile::encodeName(runtime));
    Running running;
    const QString folder = QFileInfo(running.task->socketPath()).path();
    EXPECT_EQ(directory_.path(), QFileInfo(folder).path());
    Stop(*running.task);
    EXPECT_FALSE(QFileInfo::exists(folder));
  }
  qunsetenv("TMPDIR");
}

// The leader obeys; its child ignores the request and is killed when patience ends.
TEST_F(TaskTest, StopEndsTheWholeProcessGroup) {
  const Running running;
  const pid_t pid = running.AskPid();
  const pid_t child = running.AskPid("fork");
  ASSERT_GT(child, 1);
  bool stopped = false;
  running.task->stop({}, [&stopped](const auto&) { stopped = true; });
  EXPECT_TRUE(WaitUntil([pid] { return IsGone(pid); }));
  EXPECT_FALSE(stopped || IsGone(child));
  EXPECT_TRUE(WaitUntil([&stopped] { return stopped; }));
  EXPECT_TRUE(IsGone(child));
}

TEST_F(TaskTest, StopIsAnsweredWhateverTheState) {
  Task never_started("desk_task");
  Stop(never_started);
  const Running running;
  const pid_t pid = running.AskPid();
  testing::internal::CaptureStderr();
  kill(pid, SIGKILL);
  std::string told;
  EXPECT_TRUE(WaitUntil([&told] {
    told += testing::internal::GetCapturedStderr();
    testing::internal::CaptureStderr();
    return !told.empty();
  }));
  Stop(*running.task);
  EXPECT_EQ(
      "tavo-desk: task \"desk_task\" (pid " + std::to_string(pid) + ") was killed by signal 9\n",
      told + testing::internal::GetCapturedStderr());
  EXPECT_TRUE(Sockets().isEmpty());
  EXPECT_NE("", test::Start(*running.task)) << "A task starts once.";
  // While it starts, from other threads, several times.
  Task task("desk_task");
  int answers = 0;
  task.start([](const auto&) {});
  const auto stop = [&] { task.stop({}, [&answers](const auto&) { ++answers; }); };
  std::thread threads[] = {std::thread(stop), std::thread(stop), std::thread(stop)};
  for (auto& thread : threads) thread.join();
  EXPECT_TRUE(WaitUntil([&answers] { return answers == 3; }));
}

TEST_F(TaskTest, KilledSupervisorIsReportedAndLeavesNoProcess) {
  const Running running;
  const pid_t child = running.AskPid("fork");
  kill(running.Ask("describe")["parent"].toInt(), SIGKILL);
  const auto stop = [&](const auto& done) { running.task->stop({}, done); };
  EXPECT_EQ(ECHILD, test::Await<RuntimeManager::Error>(stop).code());
  EXPECT_TRUE(WaitUntil([child] { return IsGone(child); }));
}

TEST_F(TaskTest, NothingIsLeftHoweverTheTaskEnds) {
  pid_t pid = 0;
  const std::function<void(Running&)> ends[] = {
      [](Running& running) { Stop(*running.task); },
      [](Running& running) {  // No grace is given to the child, which ignores SIGTERM.
        running.Ask("fork");
        Stop(*running.task, Task::Force);
      },
      [](Running& running) {
        running.task->stop({}, [&running](const auto&) { running.task.reset(); });
      },
      [&pid](Running&) { kill(pid, SIGKILL); },
      [&pid](Running& running) {
        running.task.reset();
        while (!IsGone(pid)) std::this_thread::yield();  // No loop runs.
      },
  };
  for (const auto& end : ends) {
    Running running;
    pid = running.AskPid();
    running.Ask("offer");
    EXPECT_EQ(1, Intents().size());
    const auto begin = std::chrono::steady_clock::now();
    end(running);
    EXPECT_TRUE(WaitUntil([&] { return IsGone(-pid) && Sockets().isEmpty(); })) << &end - ends;
    EXPECT_TRUE(WaitUntil([&] { return Intents().isEmpty(); })) << &end - ends;
    const auto took = std::chrono::steady_clock::now() - begin;
    EXPECT_LT(took, std::chrono::seconds(4 * TAVO_TEST_DEADLINE_FACTOR)) << &end - ends;
  }
}

}  // namespace
