// Intents over the desk, offered and invoked within one process, and by peers that misbehave.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/time.h>

#include <csignal>
#include <functional>
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
using Handler = RuntimeDispatcher::IntentHandler;
using Reply = RuntimeDispatcher::IntentReply;
using test::LimitTo;
using test::WaitUntil;
using Answer = std::pair<int, std::string>;  // 0 and what the reply is, or the error.

const QString kName = QString::fromUtf8("any/\xC3\xA9 name");

QJsonObject Object(const QString& value) { return {{"is", value}}; }
void Echo(const QJsonObject& parameters, const Reply& reply) { reply(parameters); }
void Ignore(const QJsonObject&, const Reply&) {}

class IntentsTest : public test::DeskTest {
 protected:
  IntentsTest() {
    QObject::connect(&invoker_, &IntentsInvoker::replyReceived, [this](auto& reply, auto& error) {
      const QString text = error ? error.message() : reply["is"].toString();
      answers_.emplace_back(error.code(), text.toStdString());
    });
  }

  static void Offer(const Handler& handler, const QString& name = kName) {
    RuntimeDispatcher::instance()->registerIntent(name, handler);
  }
  QString OfferedFile() const { return directory_.filePath("tavo/intents/") + Intents().at(0); }

  Answer TakeAnswer() {
    EXPECT_TRUE(answers_.empty()) << "An answer came within the call, or a second one later.";
    EXPECT_TRUE(WaitUntil([this] { return !answers_.empty(); }));
    return std::exchange(answers_, {}).at(0);
  }
  Answer Invoke(const QString& name = kName, const QString& parameters = "x") {
    invoker_.invoke(name, {}, Object(parameters));
    return TakeAnswer();
  }

  IntentsInvoker invoker_;
  std::vector<Answer> answers_;
};

TEST_F(IntentsTest, FirstAnswerOfTheLatestHandlerCounts) {
  const struct {
    Handler handler;
    Answer answer;
  } rows[] = {
      {Echo, {0, "x"}},
      {[](auto&, auto&& reply) { reply(Object("first")), reply(Object("late")); }, {0, "first"}},
      {[](auto& said, auto&& reply) { std::thread(reply, said).detach(); }, {0, "x"}},
      {Ignore, {EPIPE, "the intent was not answered"}},
  };
  for (const auto& row : rows) {
    Offer(row.handler);
    EXPECT_EQ(row.answer, Invoke());
  }
  EXPECT_EQ(Answer(ENOENT, "no application offers the intent \"other\""), Invoke("other"));
}

TEST_F(IntentsTest, AnswerMayComeWhenTheInvokerOrTheServerIsGone) {
  std::vector<Reply> kept;
  Offer([&kept](auto&, auto&& reply) { kept.push_back(reply); });
  auto invoker = std::make_unique<IntentsInvoker>();
  for (int i = 0; i < 2; ++i) invoker->invoke(kName, {}, {});
  EXPECT_TRUE(WaitUntil([&kept] { return kept.size() == 2; }));
  invoker.reset();
  kept[0]({});
  Offer(Echo);
  EXPECT_EQ(Answer(0, "x"), Invoke());
  app_.reset();
  kept[1]({});
}

// What a handler holds may come back here when it dies, also with the application object.
TEST_F(IntentsTest, DyingHandlerMayOfferAnother) {
  const auto again = [](void*) {
    Offer(Ignore);
    Offer(Ignore, "another");
  };
  Offer([guard = std::shared_ptr<void>(nullptr, again)](auto&, auto&&) {});
  app_.reset();
  EXPECT_EQ(QStringList(), Intents());
}

TEST_F(IntentsTest, LastToRegisterIsInvokedAndTheOlderWhenItIsGone) {
  Offer(Echo);
  const QString ours = OfferedFile();
  const timeval old[2] = {};  // Older than the other one.
  ASSERT_EQ(0, utimes(QFile::encodeName(ours).constData(), old));
  close(test::ListenAt(QFileInfo(ours).path() + "/another-1"));  // Dead.
  const QString theirs = ours.section('-', 0, -2) + "-1";
  QLocalServer server;
  ASSERT_TRUE(server.listen(theirs));
  const Answer gone(EPIPE, "the application that offers \"" + kName.toStdString() + "\" is gone");
  const struct {
    const char* said;
    Answer answer;
  } rows[] = {
      {"{\"answer\":{\"is\":\"yes\"}}\n", {0, "yes"}},
      {"{\"answer\":{\"is\":\"yes\"}}\n{\"answer\":{}}\n", {0, "yes"}},
      {"{\"answer\":[1]}\n", {EPROTO, ""}},
      {"{}\n", {EPROTO, ""}},
      {"{\"error\":\"x\"}\n", {EPROTO, ""}},
      {"{\"answer\":{},\"error\":{\"code\":2.5}}\n", {EPROTO, ""}},
      {"{\"error\":{\"code\":5,\"message\":\"no\"}}\n", {5, "no"}},
      {"", gone},
      {"nonsense\n", gone},
      {"{\"answer\":{", gone},
  };
  for (const auto& row : rows) {
    invoker_.invoke(kName, {}, {});
    ASSERT_TRUE(WaitUntil([&server] { return server.hasPendingConnections(); }));
    const std::unique_ptr<QLocalSocket> connection(server.nextPendingConnection());
    EXPECT_TRUE(WaitUntil([&connection] { return connection->canReadLine(); }));
    connection->write(row.said);
    connection->disconnectFromServer();
    EXPECT_EQ(row.answer, TakeAnswer()) << row.said;
  }
  ASSERT_TRUE(QFile::rename(theirs, theirs + "2"));  // Closing would remove it.
  server.close();
  EXPECT_EQ(Answer(0, "x"), Invoke());
  EXPECT_EQ(1, Intents().size());
}

TEST_F(IntentsTest, OpenUriFailsWhileItIsUnknownWhoOffersIt) {
  qputenv("TAVO_DESK_OPEN_URI", "record");
  Offer(Ignore, "OpenURI");
  for (const char* folder : {"tavo", "tavo/intents"}) {
    const QByteArray foreign = QFile::encodeName(directory_.filePath(folder));
    chmod(foreign.constData(), 0755);
    const Answer answer = Invoke("OpenURI");
    EXPECT_EQ(EPERM, answer.first);
    EXPECT_EQ("it is unknown who offers the intent \"OpenURI\": " + foreign.toStdString() +
                  " is no directory of this user with mode 0700",
              answer.second);
    chmod(foreign.constData(), 0700);
  }
  int error = EMFILE;
  for (rlim_t most = 3; !TAVO_TEST_SANITIZED && error == EMFILE; ++most) {
    LimitTo(most, RLIMIT_NOFILE);
    error = Invoke("OpenURI").first;
    LimitTo(RLIM_INFINITY, RLIMIT_NOFILE);
    EXPECT_EQ(most == 3 || error == EMFILE ? EMFILE : EPIPE, error);
  }
}

TEST_F(IntentsTest, TooLargeParametersAndAnswersAreToldAtBothEnds) {
  const QString large(32 << 20, 'x');
  Offer([&large](auto&, auto&& reply) { reply(Object(large)); }, "name");
  testing::internal::CaptureStderr();
  EXPECT_EQ(Answer(EMSGSIZE, "the parameters of \"name\" are too large"), Invoke("name", large));
  EXPECT_EQ(Answer(EMSGSIZE, "the answer is too large"), Invoke("name"));
  const std::string complaints = testing::internal::GetCapturedStderr();
  EXPECT_EQ(2, std::count(complaints.begin(), complaints.end(), '\n')) << complaints;
  EXPECT_NE(std::string::npos, complaints.find("intent \"name\" dropped: it has 335544"));
}

// What a process has no right, room or reader for is told; it is neither ended nor halted.
TEST_F(IntentsTest, RecordIsWholeAndPrivateOrTheFailureIsTold) {
  const QByteArray path = QFile::encodeName(apps_ + "/record");
  const QByteArray large(1 << 20, 'x');
  int pipe = -1;
  const auto make_pipe = [&](int size) {
    EXPECT_EQ(0, mkfifo(path.constData(), 0600));
    pipe = open(path.constData(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
    EXPECT_LE(0, write(pipe, large.constData(), static_cast<size_t>(size)));
  };
  const struct {
    const char* cause;    // Empty: the line is there.
    const char* content;  // Null: no file.
    std::function<void()> prepare = [] {};
  } rows[] = {
      {"", "{}\n"},
      {"", "{}"},
      {"", nullptr, [&] { make_pipe(0); }},
      {"the pipe is full", nullptr, [&] { make_pipe(large.size()); }},
      {"nobody reads the pipe", nullptr, [&] { EXPECT_EQ(0, mkfifo(path.constData(), 0600)); }},
      {"a symbolic link", nullptr, [&] { EXPECT_EQ(0, symlink("elsewhere", path.constData())); }},
      {"other users may open it (mode 0644)", "{}\n", [&] { chmod(path.constData(), 0644); }},
      {"another user owns it", "{}\n", [&] { EXPECT_EQ(0, chown(path.constData(), 65534, 0)); }},
      {"File too large", "{}\n", [] { LimitTo(10, RLIMIT_FSIZE); }},
      {"File too large", "{}\n", [] { LimitTo(3, RLIMIT_FSIZE); }},
  };
  qputenv("TAVO_DESK_OPEN_URI", "record");
  qputenv("TAVO_DESK_RECORD", path);
  for (const int number : {SIGPIPE, SIGXFSZ}) signal(number, SIG_DFL);
  for (const auto& row : rows) {
    if (geteuid() != 0 && row.cause == std::string("another user owns it")) continue;
    if (row.content) Write("record", row.content, 0600);
    row.prepare();
    const std::string cause = Invoke("OpenURI").second;
    LimitTo(RLIM_INFINITY, RLIMIT_FSIZE);
    EXPECT_EQ(!*row.cause, cause.empty()) << cause;
    EXPECT_NE(std::string::npos, cause.find(row.cause)) << cause;
    const QByteArray record = row.content ? test::Read(apps_ + "/record") : QByteArray();
    EXPECT_TRUE(*row.cause ? record == row.content : !row.content || record.count('\n') == 2);
    if (pipe >= 0) close(std::exchange(pipe, -1));
    EXPECT_EQ(0, remove(path.constData()));
  }
}

TEST_F(IntentsTest, ComplaintThatNobodyReadsEndsNobody) {
  int ends[2];
  ASSERT_EQ(0, pipe2(ends, O_CLOEXEC));
  close(ends[0]);
  const int standard_error = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0);
  dup2(ends[1], STDERR_FILENO);
  desk::ReportError("to nobody");
  dup2(standard_error, STDERR_FILENO);
  for (const int descriptor : {ends[1], standard_error}) close(descriptor);
}

TEST_F(IntentsTest, InvocationsFromThreadsAllGetAReply) {
  Offer(Echo);
  const auto invoke = [this] {
    for (int i = 0; i < 50; ++i) invoker_.invoke(kName, {}, Object("x"));
  };
  std::thread threads[] = {std::thread(invoke), std::thread(invoke)};
  EXPECT_TRUE(WaitUntil([this] { return answers_.size() == 100; }));
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(std::vector(100, Answer(0, "x")), answers_);
}

TEST_F(IntentsTest, StrangeRequestsDoNotDisturbTheServer) {
  Offer(Echo);
  for (const char* said : {"", "nonsense\n", "{}\n", "{\"intent\":\"other\"}\n",
                           "{\"intent\":\"any/\xC3\xA9 name\",\"parameters\":[]}\n", "{\"int"}) {
    QLocalSocket client;
    client.connectToServer(OfferedFile());
    EXPECT_TRUE(client.waitForConnected());
    client.write(said);
    client.disconnectFromServer();
    EXPECT_EQ(Answer(0, "x"), Invoke()) << said;
  }
}

}  // namespace
