#include "platform/runtime_manager/task_messaging.h"

#include <atomic>
#include <thread>

#include <QJsonArray>
#include <QPointer>
#include <QThread>

#include "desk/runtime_manager/json_line.h"
#include "tests/support/desk_fixture.h"
#include "tests/support/log_capture.h"

namespace {

using RuntimeManager::TaskMessaging;
using test::WaitUntil;

// As objects, values take many times their bytes; what stands in texts are no values. Qt's parser
// would lose the memory of what the first of two equal keys holds, also where a fault follows.
TEST(JsonLineTest, LineWithTooManyValuesOrARepeatedKeyIsRefused) {
  const QByteArray most(desk::kMaxLineValues - 2, ',');
  const QByteArray ones = QByteArray(most).replace(",", "1,");
  const char* const again = "an object on the line repeats a key";
  const std::pair<QByteArray, const char*> rows[] = {
      {"{\"n\":[" + ones + "1]}", ""},
      {"{\"n\":[" + ones + "1,1]}", "a line of more than 131072 values"},
      {"{\"x\":\"\\\"" + most + "{[,[{\"}", ""},
      {"{\"x\":\"\",\"y\":\"\\\\\",\"z\":\"" + most + "{[,[{\"}", ""},
      {"{\"x\":[{\"n\":{},\"\\u006e\":{}}]}", again},
      {"{\"x\":{\"n\":[1],\"n\":2},!", again},
      {"{\"x\":[{\"n\":1},{\"n\":1}],\"y\":{\"x\":0}}", ""},
  };
  for (const auto& [line, expected] : rows) {
    QString fault;
    EXPECT_EQ(!*expected, desk::ParseLine(line, &fault).has_value());
    EXPECT_EQ(expected, fault.toStdString()) << line.left(100).constData();
  }
}

// What it sends and receives are objects with one member.
struct End : TaskMessaging {
  template <typename Place>
  explicit End(const Place& place) : TaskMessaging(place) {
    connect(this, &TaskMessaging::messageReceived, [this](const QJsonObject& message) {
      values.append(message.value(QStringLiteral("n")));
    });
  }
  void Send(const QJsonValue& value) { sendMessage({{QStringLiteral("n"), value}}); }
  bool Holds(int count) const {
    return WaitUntil([this, count] { return values.size() >= count; });
  }

  QJsonArray values;
};

class TaskMessagingTest : public test::DeskTest {
 protected:
  void SetUp() override {
    DeskTest::SetUp();
    listener_ = test::ListenAt(path_);
    server_ = std::make_unique<End>(listener_);
  }
  void TearDown() override {
    server_.reset();
    close(listener_);
    DeskTest::TearDown();
  }

  // A launcher that has sent a message, and reads nothing.
  int Connect() {
    const int launcher = test::OpenSocket(path_, connect);
    send(launcher, "{\"n\":1}\n", 8, MSG_NOSIGNAL);
    return launcher;
  }

  const QString path_ = directory_.filePath(QStringLiteral("socket"));
  int listener_ = -1;
  std::unique_ptr<End> server_;
  test::ErrorCapture errors_;
};

TEST_F(TaskMessagingTest, EveryLauncherIsServed) {
  const QString text = QString::fromUtf8("line\nbreak \xF0\x9F\x98\x80");
  server_->Send(text);  // Waits for the first launcher.
  End one(path_);
  ASSERT_TRUE(one.Holds(1));
  End two(path_);
  two.Send(text);
  ASSERT_TRUE(server_->Holds(1));
  server_->Send(2);
  ASSERT_TRUE(one.Holds(2) && two.Holds(1));
  EXPECT_EQ(QJsonArray({text, 2}), one.values);
  EXPECT_EQ(QJsonArray({2}), two.values);
  EXPECT_EQ(QJsonArray({text}), server_->values);
}

// More than the event loop polls one by one. Whoever is told first deletes all others but one, to
// whom the same wake-up has come.
TEST_F(TaskMessagingTest, ManyLaunchersAreServedAlsoByANextApplication) {
  for (int round = 0; round < 2; ++round) {
    std::vector<std::unique_ptr<End>> launchers(20);
    for (auto& launcher : launchers) {
      launcher = std::make_unique<End>(path_);
      launcher->Send(1);
      QObject::connect(launcher.get(), &End::messageReceived, [&launchers, told = &launcher] {
        for (auto& other : launchers) {
          if (&other != told && &other != &launchers.back()) other.reset();
        }
      });
    }
    ASSERT_TRUE(server_->Holds(20));
    server_->Send(2);
    EXPECT_TRUE(launchers.back()->Holds(1));
    launchers.clear();
    server_.reset();
    app_.reset();
    app_.emplace(argc_, argv_);
    server_ = std::make_unique<End>(listener_);
  }
}

TEST_F(TaskMessagingTest, EndMayMoveToAnotherThread) {
  std::vector<std::unique_ptr<End>> others(10);
  for (auto& other : others) other = std::make_unique<End>(path_);
  auto* launcher = new End(path_);
  launcher->Send(1);
  ASSERT_TRUE(server_->Holds(1));
  QThread thread;
  std::atomic<QThread*> receiver{nullptr};
  QObject::connect(
      launcher, &End::messageReceived, launcher,
      [&receiver] { receiver = QThread::currentThread(); }, Qt::DirectConnection);
  QObject::connect(&thread, &QThread::finished, launcher, &QObject::deleteLater);
  launcher->moveToThread(&thread);
  thread.start();
  server_->Send(2);
  EXPECT_TRUE(WaitUntil([&] { return receiver != nullptr; }));
  EXPECT_EQ(&thread, receiver);
  thread.quit();
  thread.wait();
}

TEST_F(TaskMessagingTest, LinesAreReadAlsoOfALauncherThatIsGone) {
  const int launcher = Connect();
  ASSERT_TRUE(server_->Holds(1));
  const char lines[] = "{\"n\":2}\r\n\n[1]\nnull\n\xFF\xFE\n{\"n\"\n  {\"n\" : 3 } \n{\"n\":5";
  send(launcher, lines, sizeof lines - 1, 0);
  close(launcher);
  signal(SIGPIPE, SIG_DFL);  // Nothing may rely on its being ignored.
  for (int n = 0; n < 10; ++n) server_->Send(n);
  EXPECT_EQ("tavo-desk: connection closed with 8 bytes unsent\n", errors_.TakeText());
  EXPECT_TRUE(server_->Holds(3));
  EXPECT_EQ(QJsonArray({1, 2, 3}), server_->values);
  EXPECT_EQ(5u, errors_.TakeLines().size());
}

TEST_F(TaskMessagingTest, LauncherThatDoesNotReadIsDroppedAlone) {
  const QString megabyte(1 << 20, QLatin1Char('x'));
  const End launcher(path_);
  const int deaf = Connect();
  ASSERT_TRUE(server_->Holds(1));
  for (int count = 1; count <= 140; ++count) {
    server_->Send(megabyte);
    ASSERT_TRUE(launcher.Holds(count));
  }
  EXPECT_NE("", errors_.TakeText()) << "It is told.";
  close(deaf);
}

TEST_F(TaskMessagingTest, NothingIsLostOrReorderedWhenThreadsSend) {
  constexpr int kMessages = 5000;
  const End launcher(path_);
  const auto send = [this](int first) {
    for (int n = first; n < first + kMessages; ++n) server_->Send(n);
  };
  std::thread threads[] = {std::thread(send, 0), std::thread(send, kMessages)};
  EXPECT_TRUE(launcher.Holds(2 * kMessages));
  for (auto& thread : threads) thread.join();
  int next[] = {0, 0};
  for (const auto value : launcher.values) {
    const int n = value.toInt();
    ASSERT_EQ(next[n / kMessages]++, n % kMessages);
  }
}

TEST_F(TaskMessagingTest, HandlerMaySendRunALoopAndDeleteItsEnd) {
  const QPointer<End> launcher = new End(path_);
  QObject::connect(server_.get(), &End::messageReceived, [this] {
    EXPECT_TRUE(server_->Holds(3));
    server_->Send(0);
  });
  QObject::connect(launcher, &End::messageReceived, launcher, &End::deleteLater);
  for (int n = 1; n <= 3; ++n) launcher->Send(n);
  EXPECT_TRUE(WaitUntil([&] { return !launcher; }));
  EXPECT_EQ(QJsonArray({1, 2, 3}), server_->values);
}

// While more lines of one read wait, answers are held; no longer than until then.
TEST_F(TaskMessagingTest, AnswerLeavesBeforeAnEventLoopAndWhenItsEndIsDeleted) {
  const int launcher = Connect();
  ASSERT_TRUE(server_->Holds(1));
  const QByteArray lines = QByteArray("{\"n\":1}\n").repeated(4);
  QByteArray answers(2 * 8, '\0');
  const auto receive = [&](int flags) {
    return recv(launcher, answers.data(), answers.size(), flags);
  };
  QObject::connect(server_.get(), &End::messageReceived, [&] {
    server_->Send(server_->values.size());
    if (server_->values.size() == 3) return server_.reset();
    EXPECT_TRUE(WaitUntil([&] { return receive(MSG_DONTWAIT | MSG_PEEK) >= 8; }));
  });
  send(launcher, lines.constData(), lines.size(), 0);
  EXPECT_TRUE(WaitUntil([this] { return !server_; }));
  EXPECT_EQ(answers.size(), receive(MSG_WAITALL));
  EXPECT_EQ("{\"n\":2}\n{\"n\":3}\n", answers.toStdString());
  close(launcher);
}

// The other end goes away while a handler runs an event loop, then this end does.
TEST_F(TaskMessagingTest, EitherEndMayGoDuringAHandler) {
  const int launcher = Connect();
  QObject::connect(server_.get(), &End::messageReceived, [&] {
    if (server_->values.size() == 2) return server_.reset();
    close(launcher);
    const int open = CountDescriptors();
    EXPECT_TRUE(WaitUntil([open] { return CountDescriptors() < open; }));
  });
  EXPECT_TRUE(server_->Holds(1));
  const int other = Connect();
  EXPECT_TRUE(WaitUntil([this] { return !server_; }));
  close(other);
}

TEST_F(TaskMessagingTest, ProcessOfAnotherUserIsNotServed) {
  if (geteuid() != 0) GTEST_SKIP() << "Only root can play another user.";
  chmod(QFile::encodeName(directory_.path()).constData(), 0755);
  chmod(QFile::encodeName(path_).constData(), 0777);
  ASSERT_EQ(0, seteuid(65534));
  const int stranger = Connect();
  ASSERT_EQ(0, seteuid(0));
  char byte = 0;
  const auto is_dropped = [&] {
    return recv(stranger, &byte, 1, MSG_DONTWAIT) == 0 || errno != EAGAIN;
  };
  EXPECT_TRUE(WaitUntil(is_dropped));
  close(stranger);
  EXPECT_EQ(0, server_->values.size());
  EXPECT_NE(std::string::npos, errors_.TakeText().find("another user's"));
}

}  // namespace
