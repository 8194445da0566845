// The desk while system calls fail by a seeded schedule, in its processes at both ends.
#include <sys/wait.h>

#include <cstring>
#include <random>

#include <QJsonDocument>
#include <QPointer>

#include "desk/runtime_manager/message_peer.h"
#include "platform/runtime_manager/runtime_dispatcher.h"
#include "tests/reliability/fault_shim.h"
#include "tests/support/desk_fixture.h"
#include "tests/support/scale.h"

namespace {

using test::WaitUntil;
using Lines = std::vector<QByteArray>;

constexpr char kPreload[] = "env LD_PRELOAD=" TAVO_TEST_PRELOAD;

struct Fault {
  int error;
  unsigned one_in;
  const char* calls;

  // From the next process on that preloads the shim; here from TAVOFaultBegin on.
  void Plan(unsigned seed = test::GetSeed(), long bytes = 0) const {
    const auto text = QString::asprintf("%d %u %u %ld %s ", error, one_in, seed, bytes, calls);
    qputenv("TAVO_FAULT", text.toLatin1());
  }
};

constexpr Fault kMessageFaults[] = {
    {EINTR, 3, "recv send accept4 connect"}, {EAGAIN, 3, "recv send accept4 connect"},
    {test::kOneByte, 1, "recv send"},        {EMFILE, 2, "socket accept4"},
    {ENOBUFS, 3, "recv send accept4"},       {ECONNRESET, 100, "recv send"},
};
constexpr Fault kStartFaults[] = {
    {EINTR, 2, "recv send read write"},
    {test::kOneByte, 1, "recv send read write"},
    {ENOBUFS, 2, "recv send"},
    {EMFILE, 4, "socket socketpair pipe2"},
    {EAGAIN, 4, "_Fork"},
    {EACCES, 2, "execve"},
    {ENOSPC, 2, "mkdir bind"},
};

// One connection, and the echoes that came. The task echoes to everybody, also what it heard from
// somebody before: only lines after this one count.
struct Connection {
  explicit Connection(const QString& path, int line = 0) : before(line) { Open(path); }
  ~Connection() { delete peer; }

  void Open(const QString& path) {
    delete peer;
    peer = new desk::MessagePeer(nullptr);
    const auto keep = [this](const QJsonObject& echo) {
      if (echo.value(QStringLiteral("n")).toInt() <= before) return;
      echoes.push_back(QJsonDocument(echo).toJson(QJsonDocument::Compact) + '\n');
    };
    QObject::connect(peer, &desk::MessagePeer::messageReceived, peer, keep);
    peer->Connect(path);
    EXPECT_TRUE(WaitUntil([this] { return !peer || peer->IsConnected(); }));
  }
  void Send(const QByteArray& line) const {
    if (peer) peer->Send(line);
  }
  bool Awaits(size_t count) const {
    return WaitUntil([&] { return !peer || echoes.size() >= count; });
  }

  const int before;
  Lines echoes;
  QPointer<desk::MessagePeer> peer;  // Null when the connection ended.
};

class FaultsTest : public test::DeskTest {
 protected:
  // The error's text; empty when the task started.
  std::string Start() {
    task_ = std::make_unique<RuntimeManager::Task>(QStringLiteral("desk_task"));
    task_->withIpcSocket(true);
    return test::Start(*task_);
  }

  QByteArray NextLine() {
    const int size = static_cast<int>(random_() % 16 ? random_() % 60 : random_() % 4000);
    const auto head = QString::asprintf("{\"do\":\"echo\",\"n\":%d,\"text\":\"", ++count_);
    return head.toLatin1() + QByteArray(size, 'x') + "\"}\n";
  }

  std::mt19937 random_{test::GetSeed()};
  std::unique_ptr<RuntimeManager::Task> task_;
  int count_ = 0;
};

// What was sent over a connection comes back whole and in order, up to where it ended, if it did.
TEST_F(FaultsTest, MessagesArriveWholeOrTheConnectionEnds) {
  const size_t messages = 1000 * static_cast<size_t>(test::GetScale());
  WrapIn(kPreload);
  for (const Fault& fault : kMessageFaults) {
    const bool may_end = fault.error == EMFILE || fault.error == ECONNRESET;
    SCOPED_TRACE(fault.error);
    fault.Plan();
    ASSERT_EQ("", Start());
    TAVOFaultBegin();
    int ended = 0;
    for (size_t arrived = 0; arrived < messages;) {
      const Connection connection(task_->socketPath(), count_);
      Lines sent;
      while (sent.size() < 50 && connection.peer) {
        connection.Send(sent.emplace_back(NextLine()));
      }
      ASSERT_TRUE(connection.Awaits(sent.size())) << arrived << ", " << connection.echoes.size();
      ASSERT_LE(connection.echoes.size(), sent.size());
      if (!connection.peer) sent.resize(connection.echoes.size());
      ASSERT_EQ(sent, connection.echoes);
      arrived += sent.size();
      ended += !connection.peer;
      ASSERT_LE(ended > 0, may_end);
    }
    EXPECT_GT(TAVOFaultEnd(), 0);
    EXPECT_EQ(may_end, ended > 0);
    test::Stop(*task_);
  }
}

// What it had sent whole arrives, and nothing else. A task whose starter dies serves others on.
TEST_F(FaultsTest, EitherEndMayBeKilledAtAnyByte) {
  for (int round = 0; round < 20 * test::GetScale() && !HasFailure(); ++round) {
    const bool task_dies = round % 2 == 0;
    Lines sent;
    long total = 0;
    while (sent.size() < 20) total += sent.emplace_back(NextLine()).size();
    const long bytes = static_cast<long>(random_() % static_cast<unsigned long>(total));
    Fault{test::kKilled, 1, "send"}.Plan(0, bytes);
    SCOPED_TRACE((task_dies ? "task after " : "starter after ") + std::to_string(bytes));
    Lines whole = sent;
    for (; total > bytes; whole.pop_back()) total -= whole.back().size();
    WrapIn(task_dies ? kPreload : "");
    ASSERT_EQ("", Start());
    Connection connection(task_->socketPath());
    const pid_t starter = task_dies ? -1 : fork();
    if (starter == 0) {  // It has a connection of its own; the one before hears all echoes.
      connection.Open(task_->socketPath());
      TAVOFaultBegin();
    }
    if (starter <= 0) {
      for (const QByteArray& line : sent) connection.Send(line);
      EXPECT_TRUE(WaitUntil([&] { return !connection.peer; }));
      if (starter == 0) _exit(0);
    } else {
      int status = 0;
      ASSERT_EQ(starter, waitpid(starter, &status, 0));
      EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << status;
      EXPECT_TRUE(connection.Awaits(whole.size()));
      connection.Send(whole.emplace_back(NextLine()));
      EXPECT_TRUE(connection.Awaits(whole.size()));
    }
    EXPECT_EQ(whole, connection.echoes);
    test::Stop(*task_);
  }
}

TEST_F(FaultsTest, TaskStartsOrTheFailureIsTold) {
  qputenv("LD_PRELOAD", TAVO_TEST_PRELOAD);  // In the supervisor; the task is spared.
  WrapIn("env -u LD_PRELOAD");
  for (const Fault& fault : kStartFaults) {
    SCOPED_TRACE(fault.error);
    int failures = 0;
    for (int round = 0; round < 20 * test::GetScale(); ++round) {
      fault.Plan(test::GetSeed() + static_cast<unsigned>(round));
      TAVOFaultBegin();
      const std::string told = Start();
      TAVOFaultEnd();
      if (told.empty()) {
        const Connection connection(task_->socketPath());
        connection.Send(NextLine());
        ASSERT_TRUE(connection.Awaits(1) && connection.peer);
      } else {
        ++failures;
        EXPECT_NE(std::string::npos, told.find(std::strerror(fault.error))) << told;
      }
      test::Stop(*task_);
    }
    const bool may_fail = fault.error > 0 && fault.error != EINTR && fault.error != ENOBUFS;
    EXPECT_EQ(may_fail, failures > 0);
  }
  qunsetenv("LD_PRELOAD");
}

TEST_F(FaultsTest, SocketDirectoryOfSomebodyElseIsNotUsed) {
  if (geteuid() != 0) GTEST_SKIP() << "Only root can give a directory away.";
  const QByteArray directory = QFile::encodeName(directory_.filePath(QStringLiteral("tavo")));
  ASSERT_EQ(0, mkdir(directory.constData(), 0700));
  ASSERT_EQ(0, chown(directory.constData(), 65534, 65534));
  EXPECT_NE(std::string::npos, Start().find("is not a directory of this user with mode 0700"));
}

TEST_F(FaultsTest, IntentIsOfferedOrTheFailureIsTold) {
  for (const char* call : {"mkdir", "socket", "bind"}) {
    testing::internal::CaptureStderr();
    Fault{ENOSPC, 1, call}.Plan();
    TAVOFaultBegin();
    RuntimeManager::RuntimeDispatcher::instance()->registerIntent(QStringLiteral("intent"), {});
    TAVOFaultEnd();
    const std::string complaint = testing::internal::GetCapturedStderr();
    EXPECT_NE(std::string::npos, complaint.find("is not offered")) << call;
    EXPECT_NE(std::string::npos, complaint.find(std::strerror(ENOSPC))) << complaint;
    EXPECT_EQ(QStringList(), Intents());
  }
}

}  // namespace
