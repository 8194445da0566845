// Intents over the desk, offered and invoked within one process, and by peers that misbehave.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <ctime>
#include <functional>
#include <memory>
#include <thread>

#include <QLocalServer>
#include <QLocalSocket>

#include "desk/common/diagnostics.h"
#include "desk/runtime_manager/message_peer.h"
#include "platform/runtime_manager/intents_invoker.h"
#include "platform/runtime_manager/runtime_dispatcher.h"
#include "tests/support/desk_fixture.h"

namespace {

using RuntimeManager::IntentsInvoker;
using RuntimeManager::RuntimeDispatcher;
using test::WaitUntil;
using Answers = std::vector<std::string>;

const QString kName = QStringLiteral("name");

QJsonObject Object(const QString& value) { return {{QStringLiteral("is"), value}}; }

class IntentsTest : public test::DeskTest {
 protected:
  void SetUp() override {
    DeskTest::SetUp();
    invoker_ = MakeInvoker();
  }
  void TearDown() override {
    invoker_.reset();
    StopApplication();  // Withdraws what the test has offered.
    DeskTest::TearDown();
  }

  std::unique_ptr<IntentsInvoker> MakeInvoker() {
    auto invoker = std::make_unique<IntentsInvoker>();
    QObject::connect(
        invoker.get(), &IntentsInvoker::replyReceived,
        [this](const QJsonObject& reply, const RuntimeManager::Error& error) {
          answers_.push_back(error ? error.message().toStdString()
                                   : reply.value(QStringLiteral("is")).toString().toStdString());
        });
    return invoker;
  }

  static void Offer(RuntimeDispatcher::IntentHandler handler) {
    RuntimeDispatcher::instance()->registerIntent(kName, std::move(handler));
  }

  Answers Invoke(const QString& name = kName, const QJsonObject& parameters = {}) {
    invoker_->invoke(name, {}, parameters);
    EXPECT_TRUE(answers_.empty());  // Never within the call.
    EXPECT_TRUE(WaitUntil([this] { return !answers_.empty(); }));
    return std::exchange(answers_, {});
  }

  std::unique_ptr<IntentsInvoker> invoker_;
  Answers answers_;
};

TEST_F(IntentsTest, HandlerGetsTheParametersAndItsFirstAnswerCounts) {
  Offer([](const QJsonObject& parameters, const RuntimeDispatcher::IntentReply& reply) {
    reply(parameters);
    reply(Object(QStringLiteral("late")));
  });
  EXPECT_EQ(Answers{"one"}, Invoke(kName, Object(QStringLiteral("one"))));
  EXPECT_EQ(Answers{"two"}, Invoke(kName, Object(QStringLiteral("two"))));
  Offer([](const QJsonObject&, const RuntimeDispatcher::IntentReply& reply) {
    reply(Object(QStringLiteral("replaced")));
  });
  EXPECT_EQ(Answers{"replaced"}, Invoke());
  EXPECT_EQ(Answers{"no application offers the intent \"other\""}, Invoke(QStringLiteral("other")));
}

TEST_F(IntentsTest, AnswerMayComeLateFromAnotherThreadOrNotAtAll) {
  std::thread answering;
  Offer([&answering](const QJsonObject&, RuntimeDispatcher::IntentReply reply) {
    answering = std::thread([reply = std::move(reply)] { reply(Object(QStringLiteral("late"))); });
  });
  EXPECT_EQ(Answers{"late"}, Invoke());
  answering.join();
  Offer([](const QJsonObject&, const RuntimeDispatcher::IntentReply&) {});
  EXPECT_EQ(Answers{"the intent was not answered"}, Invoke());

  // Whoever invoked is gone, and then the server: the reply functions lead nowhere.
  std::vector<RuntimeDispatcher::IntentReply> kept;
  Offer([&kept](const QJsonObject&, RuntimeDispatcher::IntentReply reply) {
    kept.push_back(std::move(reply));
  });
  invoker_->invoke(kName, {}, {});
  invoker_->invoke(kName, {}, {});
  EXPECT_TRUE(WaitUntil([&kept] { return kept.size() == 2; }));
  invoker_ = MakeInvoker();
  kept[0]({});
  Offer([](const QJsonObject&, const RuntimeDispatcher::IntentReply& reply) {
    reply(Object(QStringLiteral("next")));
  });
  EXPECT_EQ(Answers{"next"}, Invoke());
  StopApplication();
  kept[1]({});
}

// What a handler holds may come back here when it dies, also with the application object.
TEST_F(IntentsTest, DyingHandlerMayOfferAnother) {
  const auto again = [](void*) {
    Offer([](const QJsonObject&, const RuntimeDispatcher::IntentReply&) {});
    RuntimeDispatcher::instance()->registerIntent(QStringLiteral("another"), {});
  };
  Offer([guard = std::shared_ptr<void>(nullptr, again)](const QJsonObject&,
                                                        const RuntimeDispatcher::IntentReply&) {});
  StopApplication();
  EXPECT_EQ(QStringList(), Intents());
}

TEST_F(IntentsTest, LastToRegisterIsInvokedAndTheOlderWhenItIsGone) {
  Offer([](const QJsonObject&, const RuntimeDispatcher::IntentReply& reply) {
    reply(Object(QStringLiteral("ours")));
  });
  const QString ours = directory_.filePath(QStringLiteral("tavo/intents/") + Intents().at(0));
  EXPECT_EQ(Answers{"ours"}, Invoke());
  close(test::ListenAt(QFileInfo(ours).path() + QStringLiteral("/another-1")));  // Dead.
  // Another process's, with a later time; it is dead, which the first to come finds out.
  const QString dead = ours.section(QLatin1Char('-'), 0, -2) + QStringLiteral("-1");
  QLocalServer server;
  ASSERT_TRUE(server.listen(dead));
  const timespec later[2] = {{std::time(nullptr) + 100, 0}, {std::time(nullptr) + 100, 0}};
  ASSERT_EQ(0, utimensat(AT_FDCWD, QFile::encodeName(dead).constData(), later, 0));
  invoker_->invoke(kName, {}, {});
  EXPECT_TRUE(WaitUntil([&server] { return server.hasPendingConnections(); }));
  const std::unique_ptr<QLocalSocket> connection(server.nextPendingConnection());
  connection->write("{\"answer\":{\"is\":\"theirs\"}}\n");
  EXPECT_TRUE(WaitUntil([this] { return !answers_.empty(); }));
  EXPECT_EQ(Answers{"theirs"}, std::exchange(answers_, {}));
  ASSERT_TRUE(QFile::rename(dead, dead + QStringLiteral("2")));  // Closing would remove it.
  server.close();
  EXPECT_EQ(Answers{"ours"}, Invoke());
  EXPECT_EQ(1, Intents().size());
}

TEST_F(IntentsTest, OpenUriFailsWhileItIsUnknownWhoOffersIt) {
  qputenv("TAVO_DESK_OPEN_URI", "record");
  const QString name = QStringLiteral("OpenURI");
  RuntimeDispatcher::instance()->registerIntent(
      name, [](const QJsonObject&, const RuntimeDispatcher::IntentReply&) {});
  const QByteArray shared = QFile::encodeName(directory_.filePath(QStringLiteral("tavo")));
  for (const QByteArray& foreign : {shared, shared + "/intents"}) {
    chmod(foreign.constData(), 0755);
    EXPECT_EQ("it is unknown who offers the intent \"OpenURI\": " + foreign.toStdString() +
                  " is no directory of this user with mode 0700",
              Invoke(name)[0]);
    chmod(foreign.constData(), 0700);
  }
  test::LimitTo(100, RLIMIT_NOFILE);
  for (size_t free_ones = 0; test::kRunsWithoutDescriptors && free_ones < 3;
       ++free_ones) {  // Listing, looking, connecting.
    std::vector<int> all;
    while (all.empty() || all.back() >= 0) all.push_back(open("/dev/null", O_RDONLY | O_CLOEXEC));
    for (size_t i = 0; i < free_ones; ++i) close(all[i]);
    const Answers answers = Invoke(name);
    for (size_t i = free_ones; i + 1 < all.size(); ++i) close(all[i]);
    EXPECT_EQ(free_ones < 2, answers[0].find("Too many open files") != std::string::npos);
  }
  test::LimitTo(RLIM_INFINITY, RLIMIT_NOFILE);
  qunsetenv("TAVO_DESK_OPEN_URI");
}

TEST_F(IntentsTest, TooLargeParametersAndAnswersAreToldAtBothEnds) {
  const QString large(32 << 20, QLatin1Char('x'));
  Offer([&large](const QJsonObject&, const auto& reply) { reply(Object(large)); });
  testing::internal::CaptureStderr();
  EXPECT_EQ(Answers{"the parameters of \"name\" are too large"}, Invoke(kName, Object(large)));
  EXPECT_EQ(Answers{"the answer is too large"}, Invoke());
  const std::string complaints = testing::internal::GetCapturedStderr();
  EXPECT_EQ(2, std::count(complaints.begin(), complaints.end(), '\n')) << complaints;
  EXPECT_NE(std::string::npos, complaints.find("intent \"name\" dropped: it has 335544"));
}

// What a process has no right, room or reader for is told; it is neither ended nor halted.
TEST_F(IntentsTest, RecordIsWholeAndPrivateOrTheFailureIsTold) {
  const QByteArray path = QFile::encodeName(directory_.filePath(QStringLiteral("record")));
  const auto make = [this](const char* content, mode_t mode) {
    Write(QStringLiteral("../record"), content, mode);
  };
  int pipe = -1;
  const auto make_pipe = [&] {
    EXPECT_EQ(0, mkfifo(path.constData(), 0600));
    pipe = open(path.constData(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
  };
  const struct {
    const char* cause;  // Empty: the line is there.
    std::function<void()> prepare;
  } rows[] = {
      {"", [&] { make("{}\n", 0600); }},
      {"", [&] { make("{}", 0600); }},
      {"", make_pipe},
      {"a symbolic link", [&] { EXPECT_EQ(0, symlink("elsewhere", path.constData())); }},
      {"other users may open it (mode 0644)", [&] { make("{}\n", 0644); }},
      {"nobody reads the pipe", [&] { EXPECT_EQ(0, mkfifo(path.constData(), 0600)); }},
      {"the pipe is full",
       [&] {
         for (make_pipe(); write(pipe, "line", 4) > 0;) continue;
       }},
      {"another user owns it",
       [&] {
         make("{}\n", 0600);
         EXPECT_EQ(0, chown(path.constData(), 65534, 65534));
       }},
      {"File too large", [&] { make("{}\n", 0600), test::LimitTo(10, RLIMIT_FSIZE); }},
      {"File too large", [&] { make("{}\n", 0600), test::LimitTo(3, RLIMIT_FSIZE); }},
  };
  qputenv("TAVO_DESK_OPEN_URI", "record");
  qputenv("TAVO_DESK_RECORD", path);
  for (const int number : {SIGPIPE, SIGXFSZ}) signal(number, SIG_DFL);
  for (const auto& row : rows) {
    SCOPED_TRACE(row.cause);
    if (geteuid() != 0 && row.cause == std::string("another user owns it")) continue;
    row.prepare();
    const std::string answer =
        Invoke(QStringLiteral("OpenURI"), {{QStringLiteral("uri"), QStringLiteral("x:y")}})[0];
    test::LimitTo(RLIM_INFINITY, RLIMIT_FSIZE);
    EXPECT_EQ(!*row.cause, answer.empty()) << answer;
    EXPECT_NE(std::string::npos, answer.find(row.cause)) << answer;
    QFile file(QFile::decodeName(path));
    if (QFileInfo(file).isFile() && file.open(QIODevice::ReadOnly)) {  // No pipe.
      EXPECT_EQ(*row.cause ? 1 : 2, file.readAll().count('\n'));
    }
    if (pipe >= 0) close(std::exchange(pipe, -1));
    EXPECT_EQ(0, remove(path.constData()));
  }
  int ends[2];
  ASSERT_EQ(0, pipe2(ends, O_CLOEXEC));
  close(ends[0]);
  const int standard_error = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0);
  dup2(ends[1], STDERR_FILENO);
  desk::ReportError(QStringLiteral("to nobody"));
  dup2(standard_error, STDERR_FILENO);
  for (const int descriptor : {ends[1], standard_error}) close(descriptor);
  for (const char* name : {"TAVO_DESK_OPEN_URI", "TAVO_DESK_RECORD"}) qunsetenv(name);
}

TEST_F(IntentsTest, InvocationsFromThreadsAllGetAReply) {
  Offer([](const QJsonObject& parameters, const RuntimeDispatcher::IntentReply& reply) {
    reply(parameters);
  });
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([this] {
      for (int n = 0; n < 25; ++n) invoker_->invoke(kName, {}, Object(QStringLiteral("x")));
    });
  }
  EXPECT_TRUE(WaitUntil([this] { return answers_.size() == 100; }));
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(Answers(100, "x"), answers_);
}

// A server of the test's own in the place of an application's.
class StrangeServerTest : public IntentsTest {
 protected:
  void SetUp() override {
    IntentsTest::SetUp();
    Offer([](const QJsonObject&, const RuntimeDispatcher::IntentReply&) {});
    ASSERT_EQ(1, Intents().size());
    const QString path = directory_.filePath(QStringLiteral("tavo/intents/") + Intents().at(0));
    ASSERT_TRUE(QFile::remove(path));
    listener_ = test::ListenAt(path);
  }
  void TearDown() override {
    close(listener_);
    IntentsTest::TearDown();
  }

  // What the invoker makes of a server that reads a line, says this, and closes.
  Answers InvokeAgainst(const std::string& said) {
    std::thread server([this, said] {
      const int connection = accept(listener_, nullptr, nullptr);
      char byte = 0;
      while (read(connection, &byte, 1) == 1 && byte != '\n') {
      }
      EXPECT_EQ(static_cast<ssize_t>(said.size()), write(connection, said.data(), said.size()));
      close(connection);
    });
    const auto answers = Invoke();
    server.join();
    return answers;
  }

  int listener_ = -1;
};

TEST_F(StrangeServerTest, EveryInvocationGetsExactlyOneReply) {
  EXPECT_EQ(Answers{"yes"}, InvokeAgainst("{\"answer\":{\"is\":\"yes\"}}\n"));
  EXPECT_EQ(Answers{"yes"}, InvokeAgainst("{\"answer\":{\"is\":\"yes\"}}\n{\"answer\":{}}\n"));
  for (const char* said : {"{\"answer\":[1]}\n", "{}\n", "{\"error\":\"x\"}\n",
                           "{\"answer\":{},\"error\":{\"code\":2.5}}\n"}) {
    QObject::connect(invoker_.get(), &IntentsInvoker::replyReceived,
                     [](const QJsonObject&, const RuntimeManager::Error& error) {
                       EXPECT_EQ(EPROTO, error.code());
                     });
    EXPECT_EQ(Answers{""}, InvokeAgainst(said)) << said;
    invoker_ = MakeInvoker();
  }
  EXPECT_EQ(Answers{"no"}, InvokeAgainst("{\"error\":{\"code\":5,\"message\":\"no\"}}\n"));
  for (const char* said : {"", "nonsense\n", "{\"answer\":{"}) {
    EXPECT_EQ(Answers{"the application that offers \"name\" is gone"}, InvokeAgainst(said)) << said;
  }
}

TEST_F(IntentsTest, StrangeRequestsDoNotDisturbTheServer) {
  Offer([](const QJsonObject& parameters, const RuntimeDispatcher::IntentReply& reply) {
    reply(parameters);
  });
  const QString path = directory_.filePath(QStringLiteral("tavo/intents/") + Intents().at(0));
  for (const char* said : {"", "nonsense\n", "{}\n", "{\"intent\":\"other\"}\n",
                           "{\"intent\":\"name\",\"parameters\":[]}\n", "{\"intent\":\"na"}) {
    QLocalSocket client;
    client.connectToServer(path);
    EXPECT_TRUE(client.waitForConnected());
    client.write(said);
    client.flush();
    client.disconnectFromServer();
    EXPECT_EQ(Answers{"x"}, Invoke(kName, Object(QStringLiteral("x")))) << said;
  }
}

}  // namespace
