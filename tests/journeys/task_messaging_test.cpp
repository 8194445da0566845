#include "platform/runtime_manager/task_messaging.h"

#include <thread>

#include <QJsonArray>
#include <QPointer>

#include "desk/runtime_manager/json_line.h"
#include "desk/runtime_manager/message_peer.h"
#include "tests/support/desk_fixture.h"
#include "tests/support/log_capture.h"

namespace {

using RuntimeManager::TaskMessaging;
using test::WaitUntil;
using Values = QJsonArray;

// As objects, values take many times their bytes; what stands in texts are no values. Qt's parser
// would lose the memory of what the first of two equal keys holds, also where a fault follows.
TEST(JsonLineTest, LineWithTooManyValuesOrARepeatedKeyIsRefused) {
  const QByteArray most(desk::kMostValues - 2, ',');
  const QByteArray ones = QByteArray(most).replace(",", "1,");
  const QByteArray text = most + "{[,[{\"}";
  const char* const too_many = "a line of more than 131072 values";
  const char* const again = "a line where a key comes again";
  const std::pair<QByteArray, const char*> rows[] = {
      {"{\"n\":[" + ones + "1]}", ""},
      {"{\"n\":[" + ones + "1,1]}", too_many},
      {"{\"x\":\"" + text, ""},
      {"{\"x\":\"\\\"" + text, ""},
      {"{\"x\":\"\\\\\\\"" + text, ""},
      {"{\"x\":\"\",\"y\":\"\\\\" + text, ""},
      {"{\"n\":[1],\"n\":2}", again},
      {"{\"x\":[{\"n\":{},\"\\u006e\":{}}]}", again},
      {"{\"x\":{\"n\":[1],\"n\":2},!", again},
      {"{\"x\":[{\"n\":1},{\"n\":1}],\"y\":{\"x\":0}}", ""},
      {"[{}]", "a line is no JSON object: it is an array"},
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
  bool Holds(int count) {
    return WaitUntil([this, count] { return values.size() >= count; });
  }

  Values values;
};

class TaskMessagingTest : public test::DeskTest {
 protected:
  void SetUp() override {
    DeskTest::SetUp();
    path_ = directory_.filePath(QStringLiteral("socket"));
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

  void ExpectError(const char* part) {
    const std::string text = errors_.TakeText();
    EXPECT_NE(std::string::npos, text.find(part)) << text;
  }

  QString path_;
  int listener_ = -1;
  std::unique_ptr<End> server_;
  test::ErrorCapture errors_;
  const QString megabyte_{1 << 20, QLatin1Char('x')};
};

TEST_F(TaskMessagingTest, EveryLauncherIsServedThoughNothingCanBeRecorded) {
  const QString text = QString::fromUtf8("line\nbreak \xF0\x9F\x98\x80");
  qputenv("TAVO_DESK_RECORD", QFile::encodeName(apps_));
  server_->Send(text);  // Waits for the first launcher.
  End one(path_);
  qunsetenv("TAVO_DESK_RECORD");
  ASSERT_TRUE(one.Holds(1));
  End two(path_);
  two.Send(text);
  ASSERT_TRUE(server_->Holds(1));
  server_->Send(2);
  ASSERT_TRUE(one.Holds(2) && two.Holds(1));
  EXPECT_EQ(Values({text, 2}), one.values);
  EXPECT_EQ(Values({2}), two.values);
  EXPECT_EQ(Values({text}), server_->values);
  const auto errors = errors_.TakeLines();
  ASSERT_EQ(1u, errors.size());
  EXPECT_NE(std::string::npos, errors[0].find("apps (TAVO_DESK_RECORD): Is a directory"));
}

TEST_F(TaskMessagingTest, LinesAreReadAlsoOfALauncherThatIsGone) {
  const int launcher = Connect();
  ASSERT_TRUE(server_->Holds(1));
  const char lines[] = "{\"n\":2}\r\n\n[1]\nnull\n\xFF\xFE\n{\"n\"\n  {\"n\" : 3 } \n{\"n\":5";
  send(launcher, lines, sizeof lines - 1, 0);
  close(launcher);
  signal(SIGPIPE, SIG_DFL);  // Nothing may rely on its being ignored.
  for (int n = 0; n < 10; ++n) server_->Send(n);
  EXPECT_EQ(SIG_DFL, signal(SIGPIPE, SIG_DFL));
  EXPECT_EQ("tavo-desk: connection closed with 8 bytes unsent\n", errors_.TakeText());
  EXPECT_TRUE(server_->Holds(3));
  EXPECT_EQ(Values({1, 2, 3}), server_->values);
  EXPECT_EQ(5u, errors_.TakeLines().size());
}

TEST_F(TaskMessagingTest, LauncherThatBreaksALimitIsDroppedAlone) {
  End launcher(path_);
  const QString most(desk::kLargestFrame - 8, QLatin1Char('x'));  // {"n":""} stands around it.
  launcher.Send(most);
  ASSERT_TRUE(server_->Holds(1));
  EXPECT_TRUE(server_->values[0] == most);
  launcher.Send(most + QLatin1Char('x'));
  ExpectError("message dropped: it has 33554433 bytes");

  const int deaf = Connect();
  ASSERT_TRUE(server_->Holds(2));
  for (int count = 1; count <= 140; ++count) {
    server_->Send(megabyte_);
    ASSERT_TRUE(launcher.Holds(count));
  }
  ExpectError("the other end does not read");
  close(deaf);
}

TEST_F(TaskMessagingTest, NothingIsLostOrReorderedWhenManyThreadsSendBothWays) {
  constexpr int kMessages = 5000;
  End launcher(path_);
  std::vector<std::thread> threads;
  for (int first = 0; first < 4 * kMessages; first += kMessages) {
    threads.emplace_back([&, first] {
      for (int n = first; n < first + kMessages; ++n) {
        launcher.Send(n);
        server_->Send(n);
      }
    });
  }
  for (End* end : {server_.get(), &launcher}) EXPECT_TRUE(end->Holds(4 * kMessages));
  for (auto& thread : threads) thread.join();
  for (const End* end : {server_.get(), &launcher}) {
    int next[] = {0, 0, 0, 0};
    for (const auto value : end->values) {
      const int n = value.toInt();
      ASSERT_EQ(next[n / kMessages]++, n % kMessages);
    }
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
  EXPECT_EQ(Values({1, 2, 3}), server_->values);
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

TEST_F(TaskMessagingTest, EndWithoutACounterpartIsQuietlyUseless) {
  End nobody(directory_.filePath(QStringLiteral("nothing")));
  ExpectError("nothing: No such file or directory");
  End no_socket(-1);
  ExpectError("the application was not started as a task");
  for (int i = 0; i < 200; ++i) {  // More than may wait.
    for (End* end : {&nobody, &no_socket}) end->Send(megabyte_);
    QCoreApplication::processEvents();
  }
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
  ExpectError("another user's");
}

}  // namespace
