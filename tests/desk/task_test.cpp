#include "platform/runtime_manager/task.h"

#include <fcntl.h>
#include <unistd.h>

#include <functional>
#include <optional>
#include <thread>

#include <QEventLoop>
#include <QJsonArray>
#include <QThread>

#include "platform/runtime_manager/task_messaging.h"
#include "tests/support/desk_fixture.h"

namespace {

using RuntimeManager::Error;
using RuntimeManager::Task;
using RuntimeManager::TaskMessaging;
using test::IsGone;
using test::Start;
using test::Stop;
using test::WaitUntil;

QJsonObject Do(const char* what) { return {{QStringLiteral("do"), QLatin1String(what)}}; }

class TaskTest : public test::DeskTest {
 protected:
  // A started task and the channel to it.
  struct Running {
    std::unique_ptr<Task> task;
    std::unique_ptr<TaskMessaging> messaging;
    std::vector<QJsonObject> received;

    QJsonObject Ask(const QJsonObject& request) {
      const size_t before = received.size();
      messaging->sendMessage(request);
      EXPECT_TRUE(WaitUntil([&] { return received.size() > before; })) << "No answer came.";
      return received.size() > before ? received.back() : QJsonObject();
    }
    pid_t Pid() { return Ask(Do("describe")).value(QStringLiteral("pid")).toInt(); }
  };

  std::unique_ptr<Running> StartDeskTask(const QStringList& arguments = {}) {
    auto running = std::make_unique<Running>();
    running->task = std::make_unique<Task>(QStringLiteral("desk_task"));
    running->task->withArguments(arguments);
    Connect(*running);
    return running;
  }

  void Connect(Running& running) {
    running.task->withIpcSocket(true);
    EXPECT_EQ("", Start(*running.task));
    running.messaging = std::make_unique<TaskMessaging>(running.task->socketPath());
    QObject::connect(
        running.messaging.get(), &TaskMessaging::messageReceived,
        [&running](const QJsonObject& message) { running.received.push_back(message); });
  }

  std::string StartNamed(const QString& name) {
    Task task(name);
    task.withIpcSocket(true);
    return Start(task);
  }
};

TEST_F(TaskTest, ApplicationGetsItsSocketItsArgumentsAndNothingElse) {
  const QStringList arguments{QStringLiteral("--libs-path"), QStringLiteral("/a b"),
                              QString::fromUtf8("\xC3\xA9")};
  const auto running = StartDeskTask(arguments);
  const QJsonObject told = running->Ask(Do("describe"));
  const int pid = told.value(QStringLiteral("pid")).toInt();
  EXPECT_EQ(QJsonArray::fromStringList(arguments),
            told.value(QStringLiteral("arguments")).toArray());
  EXPECT_EQ((QJsonArray{0, 1, 2, 3}), told.value(QStringLiteral("descriptors")).toArray());
  EXPECT_EQ((QJsonObject{{QStringLiteral("LISTEN_PID"), QString::number(pid)},
                         {QStringLiteral("LISTEN_FDS"), QStringLiteral("1")},
                         {QStringLiteral("LISTEN_FDNAMES"), QStringLiteral("tavo")}}),
            told.value(QStringLiteral("environment")).toObject());
  EXPECT_EQ(QJsonObject(), told.value(QStringLiteral("environment now")).toObject());
  EXPECT_EQ(3, told.value(QStringLiteral("again")).toInt());
  EXPECT_TRUE(told.value(QStringLiteral("blocks")).toBool());
  EXPECT_EQ(pid, told.value(QStringLiteral("group")).toInt());
  EXPECT_EQ(1, Sockets().size());
  Stop(*running->task);
  EXPECT_TRUE(IsGone(pid));
  EXPECT_EQ(QStringList(), Sockets());
}

TEST_F(TaskTest, ApplicationIsFoundInTheOrderThatDesktopUsersExpect) {
  RunNatively();
  // Each application says by its exit which one it was, into a file.
  const QString out = directory_.filePath(QStringLiteral("out"));
  const QByteArray out_name = QFile::encodeName(out);
  const auto script = [&](const char* who) {
    return "#!/bin/sh\nprintf '%s:' " + QByteArray(who) + " \"$@\" \"$PWD\" >'" + out_name +
           ".new'; mv '" + out_name + ".new' '" + out_name + "'\n";
  };
  const auto ran = [&](const QString& name) {
    QFile::remove(out);
    Task task(name);
    task.withArguments({QStringLiteral("last")});
    EXPECT_EQ("", Start(task));
    EXPECT_TRUE(WaitUntil([&] { return QFile::exists(out); }));
    QFile file(out);
    EXPECT_TRUE(file.open(QIODevice::ReadOnly));
    return file.readAll().toStdString();
  };
  const std::string here = QDir::currentPath().toStdString();
  const std::string apps = apps_.toStdString();
  const QByteArray program =
      QFile::encodeName(Write(QStringLiteral("bin/program"), script("exec")));
  const QByteArray head =
      "[Desktop Entry]\nType=Application\nName=The Name\nExec=\"" + program + "\" ";

  Write(QStringLiteral("plain"), script("plain"));
  EXPECT_EQ("plain:last:" + here + ":", ran(QStringLiteral("plain")));

  Write(QStringLiteral("plain.desktop"),
        head + "one \"two three\" %U --x=%f 100%% %c \\\\\\\\\nPath=" + QFile::encodeName(apps_) +
            "\n",
        0644);
  EXPECT_EQ("exec:one:two three:--x=:100%:The Name:\\:last:" + apps + ":",
            ran(QStringLiteral("plain")));

  Write(QStringLiteral("plain.desktop"), head + "\nHidden=true\n", 0644);
  EXPECT_NE(std::string::npos,
            StartNamed(QStringLiteral("plain")).find("there is no such application"));
  QFile::remove(QDir(apps_).filePath(QStringLiteral("plain.desktop")));

  // An earlier directory wins; the XDG data directories come last.
  Write(QStringLiteral("later/plain"), script("later"));
  Write(QStringLiteral("later/other"), script("other"));
  Write(QStringLiteral("../applications/xdg.desktop"), head + "xdg\n", 0644);
  Write(QStringLiteral("../applications/other.desktop"), head + "xdg\n", 0644);
  qputenv("TAVO_DESK_PATH", QFile::encodeName(apps_) + ":" + QFile::encodeName(apps_) + "/later");
  EXPECT_EQ("plain:last:" + here + ":", ran(QStringLiteral("plain")));
  EXPECT_EQ("other:last:" + here + ":", ran(QStringLiteral("other")));
  EXPECT_EQ("exec:xdg:last:" + here + ":", ran(QStringLiteral("xdg")));
}

TEST_F(TaskTest, FailedStartNamesTheApplicationAndTheCause) {
  RunNatively();
  Write(QStringLiteral("data"), "no program", 0644);
  Write(QStringLiteral("garbage"), "no program");
  Write(QStringLiteral("orphan"), "#!/nonexistent/interpreter\n");
  Write(QStringLiteral("entry.desktop"), "[Desktop Entry]\nExec=nonexistent-program %f\n", 0644);
  Write(QStringLiteral("quote.desktop"), "[Desktop Entry]\nExec=\"unfinished\n", 0644);
  Write(QStringLiteral("broken.desktop"), "no key file", 0644);
  Write(QStringLiteral("lost.desktop"), "[Desktop Entry]\nExec=/bin/true\nPath=/nonexistent\n",
        0644);
  const struct {
    const char* name;
    const char* cause;
  } rows[] = {{"missing", "there is no such application"},
              {"", "this is no name of an application"},
              {"../apps/data", "this is no name of an application"},
              {"data", "Permission denied"},
              {"garbage", "Exec format error"},
              {"orphan", "No such file or directory"},
              {"entry", "there is no program \"nonexistent-program\""},
              {"quote", "unusable Exec line"},
              {"broken", "broken.desktop: "},
              {"lost", "its directory: No such file or directory"}};
  for (const auto& row : rows) {
    const std::string error = StartNamed(QLatin1String(row.name));
    const std::string head = "Application \"" + std::string(row.name) + "\" could not be started: ";
    EXPECT_EQ(0u, error.find(head)) << error;
    EXPECT_NE(std::string::npos, error.find(row.cause)) << error;
  }
  EXPECT_TRUE(WaitUntil([this] { return Sockets().isEmpty(); }));
}

TEST_F(TaskTest, UnusableSocketDirectoryFailsTheStart) {
  const QString name = QStringLiteral("desk_task");
  const QString deep = directory_.filePath(QString(120, QLatin1Char('d')));
  QDir().mkpath(deep);
  qputenv("XDG_RUNTIME_DIR", QFile::encodeName(deep));
  EXPECT_NE(std::string::npos, StartNamed(name).find("bytes, at most 107 are possible"));

  const QString open = directory_.filePath(QStringLiteral("open"));
  QDir().mkpath(open + QStringLiteral("/tavo"));
  chmod(QFile::encodeName(open + QStringLiteral("/tavo")).constData(), 0755);
  qputenv("XDG_RUNTIME_DIR", QFile::encodeName(open));
  EXPECT_NE(std::string::npos,
            StartNamed(name).find("/open/tavo is no directory of this user with mode 0700"));

  // A runtime directory in which others may write is none; its sockets would not be safe there.
  chmod(QFile::encodeName(open + QStringLiteral("/tavo")).constData(), 0700);
  chmod(QFile::encodeName(open).constData(), 0770);
  qputenv("TMPDIR", QFile::encodeName(directory_.path()));
  const auto running = StartDeskTask();
  EXPECT_FALSE(running->task->socketPath().startsWith(open));
  Stop(*running->task);
}

TEST_F(TaskTest, TooFewDescriptorsAreToldAsSuch) {
  for (rlim_t most = 5; test::kRunsWithoutDescriptors && most < 14; ++most) {
    test::LimitTo(most, RLIMIT_NOFILE);
    const std::string error = StartNamed(QStringLiteral("desk_task"));
    test::LimitTo(RLIM_INFINITY, RLIMIT_NOFILE);
    EXPECT_TRUE(error.empty() || error.find("Too many open files") != std::string::npos) << error;
    EXPECT_TRUE(most > 10 || !error.empty());
  }
}

TEST_F(TaskTest, WithoutARuntimeDirectoryThePrivateOneIsRemovedInTheEnd) {
  qunsetenv("XDG_RUNTIME_DIR");
  qputenv("TMPDIR", QFile::encodeName(directory_.path()));
  const auto running = StartDeskTask();
  running->Pid();
  const QString folder = QFileInfo(running->task->socketPath()).path();
  EXPECT_EQ(directory_.path(), QFileInfo(folder).path());
  Stop(*running->task);
  EXPECT_FALSE(QFileInfo::exists(folder));
}

TEST_F(TaskTest, WrapperIsPutInFront) {
  WrapIn("env 'MARK=a b'");
  const auto running = StartDeskTask();
  const QJsonObject told = running->Ask(Do("describe"));
  EXPECT_EQ(QStringLiteral("a b"), told.value(QStringLiteral("environment"))
                                       .toObject()
                                       .value(QStringLiteral("MARK"))
                                       .toString());
  qputenv("TAVO_DESK_WRAPPER", "nonexistent-wrapper");
  EXPECT_NE(std::string::npos, StartNamed(QStringLiteral("desk_task"))
                                   .find("unusable TAVO_DESK_WRAPPER: there is no program"));
}

// A debugger's server forks the task: the announced process is the task's parent.
TEST_F(TaskTest, SocketReachesATaskThatItsWrapperForks) {
  Write(QStringLiteral("forks"), "#!/bin/sh\n\"$@\" &\nwait\n");
  WrapIn(QFile::encodeName(apps_) + "/forks");
  const auto running = StartDeskTask();
  const pid_t pid = running->Pid();
  Stop(*running->task);
  EXPECT_TRUE(IsGone(pid));
}

TEST_F(TaskTest, StopEndsTheWholeProcessGroup) {
  const auto running = StartDeskTask();
  const pid_t pid = running->Pid();
  const pid_t child = running->Ask(Do("fork")).value(QStringLiteral("pid")).toInt();
  ASSERT_GT(child, 1);
  // The leader obeys; its child ignores the request and is killed when patience ends.
  bool stopped = false;
  running->task->stop({}, [&stopped](const Error&) { stopped = true; });
  EXPECT_TRUE(WaitUntil([pid] { return IsGone(pid); }));
  EXPECT_FALSE(stopped);
  EXPECT_FALSE(IsGone(child));
  EXPECT_TRUE(WaitUntil([&stopped] { return stopped; }));
  EXPECT_TRUE(IsGone(child));
}

TEST_F(TaskTest, ForcedStopDoesNotAsk) {
  const auto running = StartDeskTask();
  const pid_t pid = running->Pid();
  running->Ask(Do("ignore-term"));
  const auto before = std::chrono::steady_clock::now();
  Stop(*running->task, Task::Force);
  EXPECT_TRUE(IsGone(pid));
  if (TAVO_TEST_DEADLINE_FACTOR == 1) {
    EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::seconds(4));
  }
}

TEST_F(TaskTest, StopIsAnsweredWhateverTheState) {
  Task never_started(QStringLiteral("desk_task"));
  Stop(never_started);

  const auto running = StartDeskTask();
  running->messaging->sendMessage(Do("exit"));
  EXPECT_TRUE(WaitUntil([this] { return Sockets().isEmpty(); }));
  Stop(*running->task);
  EXPECT_NE("", Start(*running->task)) << "A task starts once.";

  // While it starts, from other threads, several times.
  Task task(QStringLiteral("desk_task"));
  task.withIpcSocket(true);
  int answers = 0;
  task.start([](const Error&) {});
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] { task.stop({}, [&answers](const Error&) { ++answers; }); });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_TRUE(WaitUntil([&answers] { return answers == 4; }));
}

TEST_F(TaskTest, NoIntentIsLeftHoweverTheTaskEnds) {
  const std::function<void(Running&)> ends[] = {
      [](Running& running) { Stop(*running.task); },
      [](Running& running) { Stop(*running.task, Task::Force); },
      [](Running& running) { kill(running.Pid(), SIGKILL); },
      [](Running& running) { running.messaging->sendMessage(Do("exit")); }};
  for (const auto& end : ends) {
    const auto running = StartDeskTask();
    running->Ask(Do("offer"));
    EXPECT_EQ(1, Intents().size());
    end(*running);
    EXPECT_TRUE(WaitUntil([this] { return Intents().isEmpty(); })) << &end - ends;
  }
}

TEST_F(TaskTest, DeletedTaskEndsThoughNoLoopRuns) {
  const auto running = StartDeskTask();
  const pid_t pid = running->Pid();
  running->task.reset();
  const auto end = std::chrono::steady_clock::now() + test::kDeadline;
  while (!IsGone(pid) && std::chrono::steady_clock::now() < end) std::this_thread::yield();
  EXPECT_TRUE(IsGone(pid));
}

TEST_F(TaskTest, MayBeDeletedInItsOwnCallback) {
  auto* task = new Task(QStringLiteral("desk_task"));
  task->withIpcSocket(true);
  bool started = false;
  task->start([task, &started](const Error&) {
    started = true;
    delete task;
  });
  EXPECT_TRUE(WaitUntil([&started] { return started; }));
}

TEST_F(TaskTest, KilledSupervisorIsReportedAndLeavesNothing) {
  const auto running = StartDeskTask();
  const pid_t pid = running->Pid();
  const pid_t supervisor = running->Ask(Do("describe")).value(QStringLiteral("parent")).toInt();
  const pid_t helper = running->Ask(Do("fork")).value(QStringLiteral("pid")).toInt();
  ASSERT_TRUE(supervisor > 1 && helper > 1);
  std::optional<int> error;
  kill(supervisor, SIGSTOP);  // So that the stop is asked for before it is gone.
  running->task->stop({}, [&error](const Error& told) { error = told.code(); });
  kill(supervisor, SIGKILL);
  EXPECT_TRUE(WaitUntil([&] { return error && IsGone(pid) && IsGone(helper); }));
  EXPECT_EQ(ECHILD, error);
}

TEST_F(TaskTest, SupervisorHoldsNothingOfItsStarter) {
  const std::vector<char> large(256 << 20, 'x');
  const auto running = StartDeskTask();
  const QString process =
      QStringLiteral("/proc/%1/")
          .arg(running->Ask(Do("describe")).value(QStringLiteral("parent")).toInt());
  const auto read = [&](const char* name) {
    QFile file(process + QLatin1String(name));
    EXPECT_TRUE(file.open(QIODevice::ReadOnly));
    return file.readAll();
  };
  EXPECT_EQ("tavo-supervisor\n", read("comm"));
  EXPECT_LT(read("statm").split(' ').value(1).toInt() * (sysconf(_SC_PAGESIZE) >> 10), 128 << 10);
  if (!*TAVO_TEST_EMULATOR) {  // Which has descriptors of its own.
    EXPECT_EQ(1, QDir(process + QStringLiteral("fd")).entryList(QDir::System).size());
  }
}

// The task's three standard descriptors and its socket are right whatever the starter lacks.
TEST_F(TaskTest, StarterMayLackStandardDescriptors) {
  int saved[3];
  for (int standard = 0; standard < 3; ++standard) {
    saved[standard] = fcntl(standard, F_DUPFD_CLOEXEC, 10);
    close(standard);
  }
  const auto running = StartDeskTask();
  const QJsonObject told = running->Ask(Do("describe"));
  bool is_taken = false;  // Whoever prints would write to a socket of the desk.
  for (int standard = 0; standard < 3; ++standard) is_taken |= fcntl(standard, F_GETFD) >= 0;
  Stop(*running->task);
  running->messaging.reset();
  QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
  for (int standard = 0; standard < 3; ++standard) {
    dup2(saved[standard], standard);
    close(saved[standard]);
  }
  EXPECT_EQ((QJsonArray{0, 1, 2, 3}), told.value(QStringLiteral("descriptors")).toArray());
  EXPECT_FALSE(is_taken);
}

TEST_F(TaskTest, EndsWithItsStarterEvenWhenThatIsKilled) {
  const auto starter = StartDeskTask();
  const pid_t starter_pid = starter->Pid();
  const QJsonObject told = starter->Ask({{QStringLiteral("do"), QStringLiteral("start")},
                                         {QStringLiteral("name"), QStringLiteral("desk_task")}});
  const pid_t inner_pid = told.value(QStringLiteral("pid")).toInt();
  ASSERT_GT(inner_pid, 1);
  ASSERT_EQ(2, Sockets().size());
  kill(starter_pid, SIGKILL);
  EXPECT_TRUE(WaitUntil([inner_pid] { return IsGone(inner_pid); }));
  EXPECT_TRUE(WaitUntil([this] { return Sockets().isEmpty(); }));
}

TEST_F(TaskTest, OutlivesTheThreadThatStartedIt) {
  Running running;
  std::thread([&] {
    QEventLoop loop;
    running.task = std::make_unique<Task>(QStringLiteral("desk_task"));
    running.task->withIpcSocket(true);
    running.task->start([&loop](const Error& error) {
      EXPECT_FALSE(error);
      loop.quit();
    });
    loop.exec();
    running.task->moveToThread(QCoreApplication::instance()->thread());
  }).join();
  running.messaging = std::make_unique<TaskMessaging>(running.task->socketPath());
  QObject::connect(running.messaging.get(), &TaskMessaging::messageReceived,
                   [&running](const QJsonObject& message) { running.received.push_back(message); });
  const pid_t pid = running.Pid();
  EXPECT_FALSE(IsGone(pid));
  Stop(*running.task);
  EXPECT_TRUE(IsGone(pid));
}

}  // namespace
