#include "platform/runtime_manager/task_messaging.h"

#include <sys/wait.h>
#include <unistd.h>

#include <thread>

#include <QJsonArray>
#include <QLocalSocket>

#include "desk/runtime_manager/json_line.h"
#include "desk/runtime_manager/message_peer.h"
#include "tests/support/desk_fixture.h"

namespace {

using RuntimeManager::TaskMessaging;
using test::WaitUntil;

QJsonObject Text(const QString& text) { return {{QStringLiteral("data"), text}}; }
QJsonObject Number(int number) { return {{QStringLiteral("n"), number}}; }

// What an end has received.
struct Inbox {
  explicit Inbox(TaskMessaging& messaging) {
    QObject::connect(&messaging, &TaskMessaging::messageReceived,
                     [this](const QJsonObject& message) { messages.push_back(message); });
  }
  bool Holds(size_t count) {
    return WaitUntil([this, count] { return messages.size() >= count; });
  }
  std::vector<QJsonObject> messages;
};

// As objects, values take many times their bytes; what stands in texts are no values. Qt's parser
// would lose the memory of what the first of two equal keys holds, also where a fault follows.
TEST(JsonLineTest, LineWithTooManyValuesOrARepeatedKeyIsRefused) {
  const QByteArray most(desk::kMostValues - 2, ',');
  const QByteArray ones = QByteArray(most).replace(",", "1,");
  const QByteArray text = most + "{[,[{\"}";
  const char* const too_many = "a line of more than 131072 values";
  const char* const again = "a line where a key comes again";
  const struct {
    QByteArray line;
    const char* fault = "";
  } rows[] = {
      {"{\"n\":[" + ones + "1]}"},
      {"{\"n\":[" + ones + "1,1]}", too_many},
      {"{\"x\":\"" + text},
      {"{\"x\":\"\\\"" + text},
      {"{\"x\":\"\\\\\\\"" + text},
      {"{\"x\":\"\",\"y\":\"\\\\" + text},
      {"{\"n\":[1],\"n\":2}", again},
      {"{\"x\":[{\"n\":{},\"\\u006e\":{}}]}", again},
      {"{\"x\":{\"n\":[1],\"n\":2},!", again},
      {"{\"x\":[{\"n\":1},{\"n\":1}],\"y\":{\"x\":0}}"},
      {"[{}]", "a line is no JSON object: it is an array"},
  };
  for (const auto& row : rows) {
    QString fault;
    const auto object = desk::ParseLine(row.line, &fault);
    EXPECT_EQ(row.fault, fault.toStdString()) << row.line.left(100).constData();
    EXPECT_EQ(!*row.fault, object.has_value());
    if (&row == rows) {
      EXPECT_EQ(desk::kMostValues - 1, object->value(QStringLiteral("n")).toArray().size());
    }
  }
}

class TaskMessagingTest : public test::DeskTest {
 protected:
  void SetUp() override {
    DeskTest::SetUp();
    path_ = directory_.filePath(QStringLiteral("socket"));
    listener_ = test::ListenAt(path_);
  }
  void TearDown() override {
    close(listener_);
    DeskTest::TearDown();
  }

  // A launcher that writes what it likes.
  std::unique_ptr<QLocalSocket> RawLauncher() {
    auto raw = std::make_unique<QLocalSocket>();
    raw->connectToServer(path_);
    EXPECT_TRUE(raw->waitForConnected());
    return raw;
  }

  QString path_;
  int listener_ = -1;
};

TEST_F(TaskMessagingTest, EveryLauncherIsServedAndHearsEverything) {
  TaskMessaging server(listener_);
  Inbox at_server(server);
  server.sendMessage(Text(QStringLiteral("early")));  // Waits for the first launcher.
  TaskMessaging one(path_);
  Inbox at_one(one);
  ASSERT_TRUE(at_one.Holds(1));
  TaskMessaging two(path_);
  Inbox at_two(two);
  one.sendMessage(Text(QString::fromUtf8("line\nbreak \xF0\x9F\x98\x80")));
  two.sendMessage(Text(QStringLiteral("second")));
  ASSERT_TRUE(at_server.Holds(2));
  server.sendMessage(Text(QStringLiteral("to all")));
  ASSERT_TRUE(at_one.Holds(2) && at_two.Holds(1));
  EXPECT_EQ(Text(QStringLiteral("early")), at_one.messages[0]);
  EXPECT_EQ(Text(QStringLiteral("to all")), at_two.messages[0]);
  EXPECT_TRUE(std::count(at_server.messages.begin(), at_server.messages.end(),
                         Text(QString::fromUtf8("line\nbreak \xF0\x9F\x98\x80"))));
}

TEST_F(TaskMessagingTest, FramesAreFoundHoweverTheyArrive) {
  TaskMessaging server(listener_);
  Inbox inbox(server);
  const auto raw = RawLauncher();
  for (const char byte : QByteArray("{\"n\":1}\n")) {
    raw->write(&byte, 1);
    raw->flush();
    QCoreApplication::processEvents();
  }
  testing::internal::CaptureStderr();
  raw->write("{\"n\":2}\n{\"n\":3}\r\n\n[1]\nnull\n\xFF\xFE\n{\"n\"\n  {\"n\" : 4 } \n{\"n\":5");
  ASSERT_TRUE(inbox.Holds(4));
  const std::string complaints = testing::internal::GetCapturedStderr();
  EXPECT_EQ(5, std::count(complaints.begin(), complaints.end(), '\n')) << complaints;
  for (int n = 1; n <= 4; ++n) EXPECT_EQ(Number(n), inbox.messages[static_cast<size_t>(n - 1)]);

  // Killed in the middle of a frame: that frame is no message, and others are served on.
  raw->abort();
  TaskMessaging launcher(path_);
  launcher.sendMessage(Number(6));
  ASSERT_TRUE(inbox.Holds(5));
  EXPECT_EQ(Number(6), inbox.messages[4]);
}

TEST_F(TaskMessagingTest, RecordThatCannotBeWrittenIsToldOnceAndMessagesGoOn) {
  qputenv("TAVO_DESK_RECORD", QFile::encodeName(apps_));
  TaskMessaging server(listener_);
  Inbox inbox(server);
  TaskMessaging launcher(path_);
  testing::internal::CaptureStderr();
  for (int n = 1; n <= 2; ++n) launcher.sendMessage(Number(n));
  ASSERT_TRUE(inbox.Holds(2));
  const std::string complaints = testing::internal::GetCapturedStderr();
  EXPECT_EQ(1, std::count(complaints.begin(), complaints.end(), '\n')) << complaints;
  EXPECT_NE(std::string::npos, complaints.find("apps (TAVO_DESK_RECORD): Is a directory"))
      << complaints;
  qunsetenv("TAVO_DESK_RECORD");
}

TEST_F(TaskMessagingTest, LargeFramesPassAndTooLargeOnesDoNot) {
  TaskMessaging server(listener_);
  Inbox inbox(server);
  TaskMessaging launcher(path_);
  const int frame = static_cast<int>(desk::kLargestFrame);
  const QString most(frame - 11, QLatin1Char('x'));  // {"data":""} around it.
  launcher.sendMessage(Text(most));
  ASSERT_TRUE(inbox.Holds(1));
  EXPECT_EQ(Text(most), inbox.messages[0]);

  testing::internal::CaptureStderr();
  launcher.sendMessage(Text(most + QLatin1Char('x')));
  const auto raw = RawLauncher();
  bool dropped = false;
  QObject::connect(raw.get(), &QLocalSocket::disconnected, [&dropped] { dropped = true; });
  raw->write(QByteArray(frame + 1, 'x'));
  EXPECT_TRUE(WaitUntil([&dropped] { return dropped; }));
  launcher.sendMessage(Number(1));  // The others go on.
  ASSERT_TRUE(inbox.Holds(2));
  const std::string complaints = testing::internal::GetCapturedStderr();
  EXPECT_NE(std::string::npos, complaints.find("message dropped: it has 33554433 bytes"));
  EXPECT_NE(std::string::npos, complaints.find("a line of more than 33554432 bytes"));
}

TEST_F(TaskMessagingTest, LauncherThatDoesNotReadIsDroppedAlone) {
  TaskMessaging server(listener_);
  Inbox at_server(server);
  TaskMessaging launcher(path_);
  Inbox inbox(launcher);
  const auto deaf = RawLauncher();
  deaf->setReadBufferSize(1);
  launcher.sendMessage(Number(1));
  deaf->write("{\"n\":2}\n");
  ASSERT_TRUE(at_server.Holds(2));  // Both are served now.
  const QJsonObject megabyte = Text(QString(1 << 20, QLatin1Char('x')));
  testing::internal::CaptureStderr();
  for (size_t i = 0; i < 140; ++i) {
    server.sendMessage(megabyte);
    ASSERT_TRUE(inbox.Holds(i + 1));
  }
  EXPECT_NE(std::string::npos,
            testing::internal::GetCapturedStderr().find("the other end does not read"));
}

TEST_F(TaskMessagingTest, NothingIsLostOrReorderedWhenManyThreadsSendBothWays) {
  constexpr int kThreads = 4;
  constexpr int kMessages = 5000;
  TaskMessaging server(listener_);
  TaskMessaging launcher(path_);
  Inbox at_server(server);
  Inbox at_launcher(launcher);
  std::vector<std::thread> threads;
  for (int thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([&, thread] {
      for (int i = 0; i < kMessages; ++i) {
        const QJsonObject message{{QStringLiteral("thread"), thread}, {QStringLiteral("n"), i}};
        launcher.sendMessage(message);
        server.sendMessage(message);
      }
    });
  }
  const bool complete =
      at_server.Holds(kThreads * kMessages) && at_launcher.Holds(kThreads * kMessages);
  for (auto& thread : threads) thread.join();
  ASSERT_TRUE(complete);
  for (const Inbox* inbox : {&at_server, &at_launcher}) {
    int next[kThreads] = {};
    for (const QJsonObject& message : inbox->messages) {
      const int thread = message.value(QStringLiteral("thread")).toInt();
      ASSERT_EQ(next[thread]++, message.value(QStringLiteral("n")).toInt());
    }
  }
}

TEST_F(TaskMessagingTest, HandlerMaySendRunALoopAndDeleteItsEnd) {
  TaskMessaging server(listener_);
  auto* launcher = new TaskMessaging(path_);
  std::vector<int> seen;
  QObject::connect(&server, &TaskMessaging::messageReceived, [&](const QJsonObject& message) {
    const int n = message.value(QStringLiteral("n")).toInt();
    seen.push_back(n);
    if (n == 1) {
      EXPECT_TRUE(WaitUntil([&seen] { return seen.size() == 3; }));
    }
    server.sendMessage(Number(n));
  });
  bool deleted = false;
  QObject::connect(launcher, &QObject::destroyed, [&deleted] { deleted = true; });
  QObject::connect(launcher, &TaskMessaging::messageReceived,
                   [launcher](const QJsonObject&) { launcher->deleteLater(); });
  for (int n = 1; n <= 3; ++n) launcher->sendMessage(Number(n));
  EXPECT_TRUE(WaitUntil([&deleted] { return deleted; }));
  EXPECT_EQ((std::vector<int>{1, 2, 3}), seen);
}

// The other end, or this one, may go away while a handler of its runs an event loop.
TEST_F(TaskMessagingTest, EitherEndMayGoDuringAHandler) {
  for (const bool other_end : {true, false}) {
    auto server = std::make_unique<TaskMessaging>(listener_);
    auto raw = RawLauncher();
    bool gone = false;
    QObject::connect(server.get(), &TaskMessaging::messageReceived, [&](const QJsonObject&) {
      if (!other_end) return server.reset();
      raw.reset();
      const int open = CountDescriptors();
      gone = WaitUntil([open] { return CountDescriptors() < open; });
    });
    raw->write("{\"n\":1}\n");
    EXPECT_TRUE(WaitUntil([&] { return gone || !server; }));
  }
}

TEST_F(TaskMessagingTest, WhatAnEndSaidBeforeItWentIsStillHeard) {
  TaskMessaging server(listener_);
  Inbox inbox(server);
  const auto raw = RawLauncher();
  raw->write("{\"n\":1}\n");
  ASSERT_TRUE(inbox.Holds(1));
  raw->write("{\"n\":2}\n");
  raw->flush();
  raw->abort();
  signal(SIGPIPE, SIG_DFL);  // Nothing may rely on its being ignored.
  for (int i = 0; i < 10; ++i) server.sendMessage(Number(i));  // To nobody.
  EXPECT_TRUE(inbox.Holds(2));
  EXPECT_EQ(SIG_DFL, signal(SIGPIPE, SIG_DFL));
}

TEST_F(TaskMessagingTest, EndWithoutACounterpartIsQuietlyUseless) {
  testing::internal::CaptureStderr();
  TaskMessaging nobody(directory_.filePath(QStringLiteral("nothing")));
  TaskMessaging no_socket(-1);
  for (int i = 0; i < 200; ++i) {  // More than may wait.
    nobody.sendMessage(Text(QString(1 << 20, QLatin1Char('x'))));
    no_socket.sendMessage(Text(QString(1 << 20, QLatin1Char('x'))));
    QCoreApplication::processEvents();
  }
  const std::string complaints = testing::internal::GetCapturedStderr();
  EXPECT_NE(std::string::npos, complaints.find("nothing: No such file or directory"));
  EXPECT_NE(std::string::npos, complaints.find("the application was not started as a task"));
}

TEST_F(TaskMessagingTest, ProcessOfAnotherUserIsNotServed) {
  if (geteuid() != 0) GTEST_SKIP() << "Only root can play another user.";
  chmod(QFile::encodeName(directory_.path()).constData(), 0755);
  chmod(QFile::encodeName(path_).constData(), 0777);
  testing::internal::CaptureStderr();
  TaskMessaging server(listener_);
  Inbox inbox(server);
  const pid_t stranger = fork();
  if (stranger == 0) {
    if (setresuid(65534, 65534, 65534) != 0) _exit(2);
    const int descriptor = test::OpenSocket(path_, connect);
    if (HasFailure()) _exit(3);
    if (send(descriptor, "{\"n\":1}\n", 8, MSG_NOSIGNAL) != 8) _exit(0);
    char byte = 0;
    _exit(read(descriptor, &byte, 1) <= 0 ? 0 : 4);
  }
  int status = -1;
  EXPECT_TRUE(WaitUntil([&] { return waitpid(stranger, &status, WNOHANG) == stranger; }));
  EXPECT_EQ(0, status);
  EXPECT_EQ(0u, inbox.messages.size());
  EXPECT_NE(std::string::npos, testing::internal::GetCapturedStderr().find("another user's"));
}

}  // namespace
