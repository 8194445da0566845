// Who watches is told what the record is told, and holds nobody up.
#include "desk/runtime_manager/watchers.h"

#include <atomic>
#include <memory>
#include <optional>

#include <QEventLoop>
#include <QJsonDocument>
#include <QThread>

#include "desk/runtime_manager/recorder.h"
#include "platform/runtime_manager/task_messaging.h"
#include "tests/support/desk_fixture.h"
#include "tools/live_source.h"

namespace {

using RuntimeManager::Task;
using RuntimeManager::TaskMessaging;
using test::WaitUntil;

class Watch {
 public:
  // Reads until there are so many entries.
  bool Holds(int count) {
    return WaitUntil([&] {
      std::string line;
      while (entries.size() < count && source_->Next(&line, {}) == tools::ILineSource::Got::kLine) {
        entries.append(QJsonDocument::fromJson(QByteArray::fromStdString(line)).object());
      }
      return entries.size() >= count;
    });
  }
  // What the entries are about: an event, or a direction and the message.
  QString Told() const {
    QStringList told;
    for (const QJsonObject& entry : entries) {
      const QString direction = entry["direction"].toString();
      told += entry["event"].toString(direction + QString::number(entry["message"]["n"].toInt()));
    }
    return told.join(' ');
  }

  QVector<QJsonObject> entries;

 private:
  std::unique_ptr<tools::ILineSource> source_ = tools::MakeLiveSource();
};

// A task that sends back what it gets.
class Conversation {
 public:
  Conversation() {
    task.withIpcSocket(true);
    EXPECT_EQ("", test::Start(task));
    messaging_.emplace(task.socketPath());
    QObject::connect(&*messaging_, &TaskMessaging::messageReceived, [this] { ++answers_; });
  }
  void Say(int n, const QString& text = {}) {
    const int before = answers_;
    messaging_->sendMessage({{"n", n}, {"text", text}});
    EXPECT_TRUE(WaitUntil([&] { return answers_ > before; }));
  }

  Task task{"desk_task"};

 private:
  std::optional<TaskMessaging> messaging_;
  int answers_ = 0;
};

class WatchersTest : public test::DeskTest {
 protected:
  QStringList Watches() const { return Sockets("/tavo/watch"); }
};

TEST_F(WatchersTest, EveryWatcherIsToldFromItsArrivalOnWhatTheRecordIsTold) {
  const QString record = directory_.filePath("record");
  qputenv("TAVO_DESK_RECORD", QFile::encodeName(record));
  Watch early;
  {
    Conversation conversation;
    conversation.Say(1);
    Watch late;
    EXPECT_TRUE(late.Holds(1));
    conversation.Say(2);
    conversation.Say(3, QString(desk::kMaxWatchedMessage, 'x'));
    test::Stop(conversation.task);
    EXPECT_TRUE(late.Holds(6) && early.Holds(8));
    EXPECT_EQ("running to2 from2 to0 from0 end", late.Told());
    EXPECT_EQ("start to1 from1 to2 from2 to0 from0 end", early.Told());
    EXPECT_GT(late.entries[3]["size"].toInt(), desk::kMaxWatchedMessage) << "It was too large.";
  }
  EXPECT_FALSE(
      QJsonDocument::fromJson(test::Read(record).split('\n')[5]).object()["message"].isNull());
  double time = 0;
  for (const QJsonObject& entry : early.entries) {
    const bool is_event = entry.contains("event");
    EXPECT_EQ(getpid(), entry[is_event ? "starter" : "pid"].toInt());
    EXPECT_EQ(early.entries[0]["pid"], entry[is_event ? "pid" : "peer"]);
    EXPECT_TRUE(is_event || entry["connection"] == early.entries[1]["connection"]);
    EXPECT_LE(time, entry["monotonic"].toDouble());
    time = entry["monotonic"].toDouble();
  }
  EXPECT_EQ(SIGTERM, early.entries.last()["signal"].toInt());
  EXPECT_TRUE(early.entries.last()["stopped"].toBool());
}

// The watcher comes later, so the application's thread finds it.
TEST_F(WatchersTest, ConversationOfAnotherThreadIsWatched) {
  const QString path = directory_.filePath("socket");
  const int listener = test::ListenAt(path);
  std::optional<TaskMessaging> server(std::in_place, listener);
  std::atomic<int> received{0};
  const std::unique_ptr<QThread> thread(QThread::create([&] {
    const TaskMessaging launcher(path);
    QObject::connect(&launcher, &TaskMessaging::messageReceived, [&received] { ++received; });
    QEventLoop().exec();
  }));
  thread->start();
  server->sendMessage({{"n", 1}});
  EXPECT_TRUE(WaitUntil([&received] { return received == 1; }));
  Watch watch;
  EXPECT_TRUE(WaitUntil([] { return desk::watchers::AreThere(); }));
  server->sendMessage({{"n", 2}});
  EXPECT_TRUE(watch.Holds(1));
  EXPECT_EQ("from2", watch.Told());
  thread->quit();
  EXPECT_TRUE(thread->wait());
  EXPECT_FALSE(desk::watchers::AreThere());
  server.reset();
  close(listener);
}

TEST_F(WatchersTest, SlowWatcherIsToldWhatItHasMissedAndADeadOneIsForgotten) {
  QDir().mkpath(directory_.filePath("tavo/watch"));
  for (const char* folder : {"tavo", "tavo/watch"}) {
    chmod(QFile::encodeName(directory_.filePath(folder)).constData(), 0700);
  }
  close(test::ListenAt(directory_.filePath("tavo/watch/dead")));
  Conversation conversation;
  EXPECT_EQ(QStringList(), Watches());
  EXPECT_FALSE(desk::watchers::AreThere());
  auto watch = std::make_unique<Watch>();
  EXPECT_TRUE(WaitUntil([] { return desk::watchers::AreThere(); }));
  constexpr int kMany = 100;
  const QString text(desk::kMaxWatchedMessage / 2, 'x');
  for (int n = 0; n < kMany; ++n) conversation.Say(n, text);
  EXPECT_TRUE(watch->Holds(1)) << "It reads what there is.";
  conversation.Say(kMany);
  while (!watch->entries.last().contains("count")) {
    ASSERT_TRUE(watch->Holds(watch->entries.size() + 1));
  }
  const int told = watch->entries.size() - 2;  // Without the first and the last entry.
  EXPECT_EQ(2 * kMany, told + watch->entries.last()["count"].toInt());
  watch.reset();
  EXPECT_EQ(QStringList(), Watches());
  EXPECT_TRUE(WaitUntil([] { return !desk::watchers::AreThere(); }));
  conversation.Say(0);
}

}  // namespace
