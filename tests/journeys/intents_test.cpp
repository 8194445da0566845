// Intents over the desk, offered and invoked within one process, and by peers that misbehave.
#include <sys/stat.h>
#include <sys/time.h>

#include <functional>
#include <thread>

#include <QLocalServer>
#include <QLocalSocket>

#include "platform/runtime_manager/intents_invoker.h"
#include "platform/runtime_manager/runtime_dispatcher.h"
#include "tests/support/desk_fixture.h"

namespace {

using RuntimeManager::IntentsInvoker;
using RuntimeManager::RuntimeDispatcher;
using Handler = RuntimeDispatcher::IntentHandler;
using Reply = RuntimeDispatcher::IntentReply;
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
  // From another thread, which is the harder case.
  Answer Invoke(const QString& name = kName, const QString& parameters = "x") {
    std::thread([&] { invoker_.invoke(name, {}, Object(parameters)); }).join();
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
      {"{\"answer\":{\"is\":\"yes\"}}\n{\"answer\":{}}\n", {0, "yes"}},
      {"{\"answer\":[1]}\n", {EPROTO, ""}},
      {"{\"answer\":{},\"error\":{\"code\":2.5}}\n", {EPROTO, ""}},
      {"{\"error\":{\"code\":5,\"message\":\"no\"}}\n", {5, "no"}},
      {"", gone},
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
    EXPECT_EQ(EPERM, Invoke("OpenURI").first) << folder;
    chmod(foreign.constData(), 0700);
    EXPECT_EQ(EPIPE, Invoke("OpenURI").first) << "The application ignores it.";
  }
}

TEST_F(IntentsTest, TooLargeParametersAndAnswersAreToldAtBothEnds) {
  const QString large(32 << 20, 'x');
  Offer([&large](auto&, auto&& reply) { reply(Object(large)); }, "name");
  EXPECT_EQ(Answer(EMSGSIZE, "the parameters of \"name\" are too large"), Invoke("name", large));
  EXPECT_EQ(Answer(EMSGSIZE, "the answer is too large"), Invoke("name"));
}

// Neither a link nor a pipe that nobody reads may hold a process up or lead elsewhere.
TEST_F(IntentsTest, RecordIsWholeAndPrivateOrTheFailureIsTold) {
  const QByteArray path = QFile::encodeName(apps_ + "/record");
  const struct {
    const char* cause;  // Empty: the line is there.
    const char* content;
    std::function<int()> prepare = [] { return 0; };
  } rows[] = {
      {"", "{}\n"},
      {"", "{}"},  // The rest of a line, which another process could not finish.
      {"other users may open it (mode 0644)", "{}", [&] { return chmod(path, 0644); }},
      {"a symbolic link", nullptr, [&] { return symlink("elsewhere", path); }},
      {"nobody reads the pipe", nullptr, [&] { return mkfifo(path, 0600); }},
  };
  qputenv("TAVO_DESK_OPEN_URI", "record");
  qputenv("TAVO_DESK_RECORD", path);
  for (const auto& row : rows) {
    if (row.content) Write("record", row.content, 0600);
    EXPECT_EQ(0, row.prepare());
    const std::string cause = Invoke("OpenURI").second;
    EXPECT_EQ(!*row.cause, cause.empty()) << cause;
    EXPECT_NE(std::string::npos, cause.find(row.cause)) << cause;
    EXPECT_TRUE(*row.cause || test::Read(apps_ + "/record").count('\n') == 2);
    EXPECT_EQ(0, remove(path));
  }
}

TEST_F(IntentsTest, StrangeRequestsDoNotDisturbTheServer) {
  Offer(Echo);
  for (const char* said : {"", "nonsense\n", "{\"intent\":\"other\"}\n", "{\"int"}) {
    QLocalSocket client;
    client.connectToServer(OfferedFile());
    EXPECT_TRUE(client.waitForConnected());
    client.write(said);
    client.disconnectFromServer();
    EXPECT_EQ(Answer(0, "x"), Invoke()) << said;
  }
}

}  // namespace
