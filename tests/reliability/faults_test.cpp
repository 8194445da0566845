// The desk while system calls fail by a seeded schedule, in its processes at both ends.
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <optional>
#include <random>
#include <utility>

#include <QJsonDocument>
#include <QPointer>

#include "desk/runtime_manager/message_peer.h"
#include "platform/runtime_manager/runtime_dispatcher.h"
#include "platform/runtime_manager/task.h"
#include "tests/reliability/fault_shim.h"
#include "tests/support/desk_fixture.h"
#include "tests/support/scale.h"

namespace {

using RuntimeManager::Task;
using test::Fault;
using test::WaitUntil;

// One connection: the echoes that came, in their order.
struct Connection {
  explicit Connection(const QString& path) : peer(new desk::MessagePeer(nullptr)) {
    QObject::connect(peer, &desk::MessagePeer::messageReceived, peer,
                     [this](const QJsonObject& message) { echoes.push_back(message); });
    QObject::connect(peer, &desk::MessagePeer::closed, peer, [this] { closed = true; });
    peer->Connect(path);
  }
  ~Connection() { delete peer; }

  bool closed = false;
  std::vector<QJsonObject> echoes;
  QPointer<desk::MessagePeer> peer;
};

QByteArray LineOf(const QJsonObject& message) {
  return QJsonDocument(message).toJson(QJsonDocument::Compact) + '\n';
}

class FaultsTest : public test::DeskTest {
 protected:
  void TearDown() override {
    Fail(nullptr);
    DeskTest::TearDown();
  }

  // In this process from now on, and in its forks.
  static void Fail(const Fault* fault) {
    TAVOFaultSetPlan(fault ? fault->GetPlan().c_str() : nullptr);
  }
  static void Fail(const Fault& fault) { Fail(&fault); }

  static QByteArray PlanOf(const Fault& fault) {
    return QByteArray::fromStdString(fault.GetPlan());
  }

  // The error's text; empty when the task started. `fault`: in the task alone.
  std::string Start(const Fault* fault = nullptr) {
    if (fault) WrapIn("env LD_PRELOAD=" TAVO_TEST_PRELOAD " TAVO_FAULT='" + PlanOf(*fault) + "'");
    task_ = std::make_unique<Task>(QStringLiteral("desk_task"));
    task_->withIpcSocket(true);
    const auto outcome = std::make_shared<std::optional<std::string>>();
    task_->start([outcome](const auto& error) { *outcome = error.message().toStdString(); });
    EXPECT_TRUE(WaitUntil([&outcome] { return outcome->has_value(); }));
    return outcome->value_or("no outcome");
  }

  void Stop() {
    bool stopped = false;
    task_->stop({}, [&stopped](const auto&) { stopped = true; });
    EXPECT_TRUE(WaitUntil([&stopped] { return stopped; }));
    task_.reset();
  }

  QJsonObject NextMessage(int connection) {
    const int size = static_cast<int>(random_() % 16 ? random_() % 60 : random_() % 4000);
    return {{QStringLiteral("do"), QStringLiteral("echo")},
            {QStringLiteral("connection"), connection},
            {QStringLiteral("n"), ++count_},
            {QStringLiteral("text"), QString(size, QLatin1Char('x'))}};
  }

  const unsigned seed_ = test::GetSeed();
  std::mt19937 random_{seed_};
  std::unique_ptr<Task> task_;
  int count_ = 0;
};

// The parameters' names are those of the tests.
struct Row {
  const char* name;
  int error;
  const char* calls;
  unsigned one_in;

  Fault GetFault(unsigned seed) const { return {error, calls, one_in, seed}; }
};
void PrintTo(const Row& row, std::ostream* stream) { *stream << row.name; }
std::string GetName(const testing::TestParamInfo<Row>& row) { return row.param.name; }

// ---- Messages -----------------------------------------------------------------------------------

class MessageFaultsTest : public FaultsTest, public testing::WithParamInterface<Row> {};

// What was sent over a connection comes back whole and in order, up to where it ended, if it did.
TEST_P(MessageFaultsTest, MessagesArriveWholeOrTheConnectionEnds) {
  const Fault fault = GetParam().GetFault(seed_);
  ASSERT_EQ("", Start(&fault));
  Fail(fault);
  const int messages = 1000 * test::GetScale();
  const bool hits_openings = fault.error == EMFILE;  // Alone: then each batch has its connection.
  int connections = 0;
  for (int arrived = 0; arrived < messages;) {
    Connection connection(task_->socketPath());
    ++connections;
    do {
      ASSERT_TRUE(WaitUntil([&] { return connection.closed || connection.peer->IsConnected(); }));
      std::vector<QJsonObject> sent;
      for (int i = 0; i < 50 && !connection.closed; ++i) {
        sent.push_back(NextMessage(connections));
        connection.peer->Send(LineOf(sent.back()));
      }
      auto& echoes = connection.echoes;
      const auto is_ours = [&](const QJsonObject& echo) {
        return echo.value(QStringLiteral("connection")) == connections;
      };
      // The task echoes to everybody, also what it heard from somebody before.
      const auto come = [&] {
        echoes.erase(std::remove_if(echoes.begin(), echoes.end(), std::not_fn(is_ours)),
                     echoes.end());
        return echoes.size() >= sent.size() || connection.closed;
      };
      ASSERT_TRUE(WaitUntil(come)) << arrived << " came, then " << echoes.size();
      ASSERT_LE(echoes.size(), sent.size());
      for (size_t i = 0; i < echoes.size(); ++i) ASSERT_EQ(sent[i], echoes[i]);
      arrived += static_cast<int>(echoes.size());
      echoes.clear();
    } while (arrived < messages && !connection.closed && !hits_openings);
  }
  EXPECT_GT(TAVOFaultCount(), 0);
  const bool ends = fault.error == EMFILE || fault.error == ECONNRESET;
  EXPECT_EQ(ends, connections > 1);
  Fail(nullptr);
  Stop();
}

constexpr Row kMessageFaults[] = {
    {"EINTR", EINTR, "recv send accept4 connect", 3},
    {"EAGAIN", EAGAIN, "recv send accept4 connect", 3},
    {"OneByte", Fault::kShort, "recv send", 1},
    {"EMFILE", EMFILE, "socket accept4", 2},
    {"ENOBUFS", ENOBUFS, "recv send accept4", 3},
    {"ECONNRESET", ECONNRESET, "recv send", 100},
};
INSTANTIATE_TEST_SUITE_P(Faults, MessageFaultsTest, testing::ValuesIn(kMessageFaults), GetName);

// A peer that is killed within its messages: what it had sent whole arrives, and nothing else.
struct Death {
  Fault fault;
  std::vector<QJsonObject> sent;
  std::vector<QJsonObject> whole;
};

class DeathFaultsTest : public FaultsTest {
 protected:
  Death NextDeath() {
    Death death{{Fault::kKill, "send", 1, seed_}, {}, {}};
    long total = 0;
    while (death.sent.size() < 20) total += LineOf(death.sent.emplace_back(NextMessage(0))).size();
    death.fault.after = static_cast<long>(random_()) % total;
    for (long bytes = 0;;) {
      const QJsonObject& next = death.sent[death.whole.size()];
      if ((bytes += LineOf(next).size()) > death.fault.after) return death;
      death.whole.push_back(next);
    }
  }

  static void SendAll(const Connection& connection, const Death& death) {
    ASSERT_TRUE(WaitUntil([&] { return connection.peer->IsConnected(); }));
    for (const QJsonObject& message : death.sent) connection.peer->Send(LineOf(message));
  }
};

TEST_F(DeathFaultsTest, TaskMayBeKilledAtAnyByte) {
  for (int round = 0; round < 10 * test::GetScale(); ++round) {
    const Death death = NextDeath();
    SCOPED_TRACE("killed after " + std::to_string(death.fault.after) + " bytes");
    ASSERT_EQ("", Start(&death.fault));
    Connection connection(task_->socketPath());
    SendAll(connection, death);
    ASSERT_TRUE(WaitUntil([&] { return connection.closed; }));
    EXPECT_EQ(death.whole, connection.echoes);
    Stop();
  }
}

// The task serves others on, who hear all that it echoes.
TEST_F(DeathFaultsTest, StarterMayBeKilledAtAnyByte) {
  ASSERT_EQ("", Start());
  Connection witness(task_->socketPath());
  ASSERT_TRUE(WaitUntil([&] { return witness.peer->IsConnected(); }));
  for (int round = 0; round < 10 * test::GetScale(); ++round) {
    Death death = NextDeath();
    SCOPED_TRACE("killed after " + std::to_string(death.fault.after) + " bytes");
    const pid_t starter = fork();
    if (starter == 0) {
      delete witness.peer;  // What comes there is not for the child.
      Fail(death.fault);
      const Connection connection(task_->socketPath());
      SendAll(connection, death);
      WaitUntil([] { return false; });
      _exit(0);
    }
    int status = 0;
    ASSERT_EQ(starter, waitpid(starter, &status, 0));
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << status;
    const auto come = [&] { return witness.echoes.size() >= death.whole.size(); };
    ASSERT_TRUE(WaitUntil(come)) << witness.echoes.size() << " of " << death.whole.size();
    witness.peer->Send(LineOf(death.whole.emplace_back(NextMessage(1))));
    ASSERT_TRUE(WaitUntil(come));
    EXPECT_EQ(death.whole, std::exchange(witness.echoes, {}));
  }
  Stop();
}

// ---- Starts -------------------------------------------------------------------------------------

class StartFaultsTest : public FaultsTest, public testing::WithParamInterface<Row> {};

TEST_P(StartFaultsTest, TaskStartsOrTheFailureIsTold) {
  int failures = 0;
  qputenv("LD_PRELOAD", TAVO_TEST_PRELOAD);  // In the supervisor; the task is spared.
  WrapIn("env -u LD_PRELOAD -u TAVO_FAULT");
  for (int round = 0; round < 20 * test::GetScale(); ++round) {
    const Fault fault = GetParam().GetFault(seed_ + static_cast<unsigned>(round));
    qputenv("TAVO_FAULT", PlanOf(fault));
    Fail(fault);
    const std::string error = Start();
    Fail(nullptr);
    if (error.empty()) {
      Connection connection(task_->socketPath());
      ASSERT_TRUE(WaitUntil([&] { return connection.peer->IsConnected(); }));
      connection.peer->Send(LineOf(NextMessage(0)));
      ASSERT_TRUE(WaitUntil([&] { return !connection.echoes.empty(); }));
    } else {
      ++failures;
      EXPECT_NE(std::string::npos, error.find(std::strerror(GetParam().error))) << error;
    }
    Stop();
  }
  const int error = GetParam().error;
  for (const char* name : {"LD_PRELOAD", "TAVO_FAULT"}) qunsetenv(name);
  const bool may_fail = error != Fault::kShort && error != EINTR && error != ENOBUFS;
  EXPECT_EQ(may_fail, failures > 0);
}

constexpr Row kStartFaults[] = {
    {"EINTR", EINTR, "recv send read write", 2},
    {"OneByte", Fault::kShort, "recv send read write", 1},
    {"ENOBUFS", ENOBUFS, "recv send", 2},
    {"EMFILE", EMFILE, "socket socketpair pipe2", 4},
    {"Fork", EAGAIN, "_Fork", 4},
    {"Exec", EACCES, "execve", 2},
    {"ReadOnlyDirectory", EROFS, "mkdir bind", 2},
    {"FullDirectory", ENOSPC, "mkdir bind", 2},
};
INSTANTIATE_TEST_SUITE_P(Faults, StartFaultsTest, testing::ValuesIn(kStartFaults), GetName);

TEST_F(FaultsTest, SocketDirectoryOfSomebodyElseIsNotUsed) {
  if (geteuid() != 0) GTEST_SKIP() << "Only root can give a directory away.";
  const QByteArray directory = QFile::encodeName(directory_.filePath(QStringLiteral("tavo")));
  ASSERT_EQ(0, mkdir(directory.constData(), 0700));
  ASSERT_EQ(0, chown(directory.constData(), 65534, 65534));
  EXPECT_NE(std::string::npos, Start().find("is no directory of this user with mode 0700"));
  ASSERT_EQ(0, chown(directory.constData(), geteuid(), getegid()));
  EXPECT_EQ("", Start());
  Stop();
}

TEST_F(FaultsTest, IntentIsOfferedOrTheFailureIsTold) {
  for (const char* call : {"mkdir", "socket", "bind"}) {
    testing::internal::CaptureStderr();
    Fail(Fault{ENOSPC, call, 1, seed_});
    RuntimeManager::RuntimeDispatcher::instance()->registerIntent(QStringLiteral("intent"), {});
    Fail(nullptr);
    const std::string complaint = testing::internal::GetCapturedStderr();
    EXPECT_NE(std::string::npos, complaint.find("is not offered")) << call;
    EXPECT_NE(std::string::npos, complaint.find(std::strerror(ENOSPC))) << complaint;
    EXPECT_EQ(QStringList(), Intents());
  }
}

}  // namespace
