#include <algorithm>
#include <stdexcept>

#include "tests/src/service_fixture.h"

namespace {

using RuntimeManager::Error;
using test::Events;

class RpcClientImplTest : public test::ServiceTest {
 protected:
  test::Recorder recorder_;
  test::Recorder deaf_recorder_;
};

TEST_F(RpcClientImplTest, StartsTheNamedTaskWithASocketAndTheLibraryPath) {
  StartedClient(recorder_);
  const test::FakeTask& task = platform.Task();
  EXPECT_EQ(QStringLiteral("worker"), task.name);
  EXPECT_TRUE(task.ipc_socket);
  EXPECT_EQ((QStringList{QStringLiteral("--libs-path"), QStringLiteral("/libs")}), task.arguments);
  EXPECT_EQ(Events{}, recorder_.Take());
  platform.Task().Started();
  EXPECT_EQ(Events{"started 0 <>"}, recorder_.Take());
  EXPECT_EQ(0u, recorder_.last_chunk);
  EXPECT_EQ(QStringLiteral("/run/worker"), platform.Messaging().path);
}

TEST_F(RpcClientImplTest, StartIsRefusedForBadArgumentsAndASecondTime) {
  const auto client = top.CreateRpcClient(manager);
  TAVORpcClientSlots slots = recorder_.ClientSlots();
  EXPECT_EQ(2u, client_table.StartTask(client, "", "/libs", &slots));
  EXPECT_EQ(2u, client_table.StartTask(client, "worker", "", &slots));
  EXPECT_EQ(2u, client_table.StartTask(nullptr, "worker", "/libs", &slots));
  EXPECT_THROW(client_table.StartTask(client, nullptr, "/libs", &slots), std::logic_error);
  EXPECT_THROW(client_table.StartTask(client, "worker", nullptr, &slots), std::logic_error);
  EXPECT_EQ(0u, client_table.StartTask(client, "worker", "/libs", &slots));
  EXPECT_EQ(3u, client_table.StartTask(client, "worker", "/libs", nullptr));
  EXPECT_EQ(1u, platform.tasks.size());
  EXPECT_EQ(Events{}, recorder_.events);  // No slots were taken and released.
}

TEST_F(RpcClientImplTest, StartThatThrowsLeavesTheClientAndTheSlotsAsTheyWere) {
  const auto client = top.CreateRpcClient(manager);
  TAVORpcClientSlots slots = recorder_.ClientSlots();
  platform.fail_start = true;
  EXPECT_EQ(3u, client_table.StartTask(client, "worker", "/libs", &slots));
  EXPECT_EQ("[error] Stray exception in StartTask: std::bad_alloc", log_.TakeLine());
  platform.fail_start = false;
  EXPECT_EQ(0u, client_table.StartTask(client, "worker", "/libs", &slots));
  EXPECT_EQ(Events{}, recorder_.events);
}

TEST_F(RpcClientImplTest, FailedStartIsReportedWithItsCause) {
  const auto client = StartedClient(recorder_);
  platform.Task().Started({7, QStringLiteral("no such application")});
  EXPECT_EQ("[info] [ta-vo] on started call error: no such application", log_.TakeLine());
  EXPECT_EQ(Events{"started -32603 <no such application>"}, recorder_.Take());
  EXPECT_NE(0u, recorder_.last_chunk);
  client_table.UnlockResources(client, recorder_.last_chunk);
  EXPECT_EQ(3u, client_table.SendMessage(client, "text"));
  client_table.Release(client);  // Only makes the handle unknown.
  EXPECT_EQ(Events{}, recorder_.Take());
  top.Release(manager);
  EXPECT_EQ((Events{"disconnect 0 <>", "release"}), recorder_.Take());
}

TEST_F(RpcClientImplTest, TextsGoBothWaysAsDataMembers) {
  const auto client = RunningClient(recorder_);
  EXPECT_EQ(0u, client_table.SendMessage(client, "h\xC3\xA9llo"));
  EXPECT_EQ(0u, client_table.SendMessage(client, ""));
  EXPECT_EQ((Events{"h\xC3\xA9llo", ""}), platform.SentTexts());
  EXPECT_EQ(1, platform.Messaging().sent[0].size());

  platform.Messaging().ReceiveText(QString::fromUtf8("w\xC3\xB6rld"));
  EXPECT_EQ(Events{"message <w\xC3\xB6rld>"}, recorder_.Take());
  const unsigned int chunk = recorder_.last_chunk;
  EXPECT_NE(0u, chunk);
  client_table.UnlockResources(client, 0);
  client_table.UnlockResources(client, chunk);
  client_table.UnlockResources(client, chunk);
  EXPECT_EQ("[error] Invalid chunk ID <" + std::to_string(chunk) + ">", log_.TakeLine());
  client_table.UnlockResources(nullptr, chunk);
}

TEST_F(RpcClientImplTest, MessageWithoutADataTextIsDroppedSilently) {
  RunningClient(recorder_);
  const QString data = QStringLiteral("data");
  for (const QJsonObject& message :
       {QJsonObject{}, QJsonObject{{data, 5}}, QJsonObject{{data, QJsonValue::Null}},
        QJsonObject{{data, QJsonObject{}}}, QJsonObject{{QStringLiteral("Data"), data}}}) {
    platform.Messaging().Receive(message);
  }
  EXPECT_EQ(Events{}, recorder_.Take());
}

TEST_F(RpcClientImplTest, NothingIsSentWithoutAChannel) {
  const auto client = StartedClient(recorder_);
  EXPECT_EQ(3u, client_table.SendMessage(client, "early"));
  EXPECT_EQ(3u, client_table.SendMessage(nullptr, "text"));
  platform.Task().Started();
  EXPECT_EQ(3u, client_table.SendMessage(client, nullptr));
  client_table.Release(client);
  EXPECT_EQ(3u, client_table.SendMessage(client, "late"));
  EXPECT_EQ(Events{}, platform.SentTexts());
  platform.Task().Stopped();
}

TEST_F(RpcClientImplTest, ReleaseStopsTheTaskAndThenDropsTheClient) {
  const auto client = RunningClient(recorder_);
  client_table.Release(client);
  EXPECT_EQ(Events{"disconnect 0 <>"}, recorder_.Take());
  EXPECT_EQ(nullptr, platform.Messaging().object);
  EXPECT_EQ(RuntimeManager::Task::StopFlags(), platform.Task().stop_flags);
  EXPECT_TRUE(platform.Task().alive);
  client_table.Release(client);
  platform.Task().Stopped();
  EXPECT_EQ((Events{"disconnect 0 <>", "release"}), recorder_.Take());
  EXPECT_FALSE(platform.Task().alive);
}

TEST_F(RpcClientImplTest, FailedStopIsLoggedAndDropsTheClientAllTheSame) {
  client_table.Release(RunningClient(recorder_));
  platform.Task().Stopped({1, QStringLiteral("it will not die")});
  EXPECT_EQ("[error] [ta-vo] stop error: it will not die", log_.TakeLine());
  EXPECT_EQ("release", recorder_.events.back());
}

// An event loop that ended with the stop on its way destroyed the callback, and the client with it,
// under Qt's lock: the process hung in its exit. The client goes with the next stop instead.
TEST_F(RpcClientImplTest, PlatformMayDropTheStopCallback) {
  client_table.Release(RunningClient(recorder_));
  platform.Task().stop = nullptr;
  top.Release(manager);
  EXPECT_EQ(0, std::count(recorder_.events.begin(), recorder_.events.end(), "release"));
  test::Recorder next;
  client_table.Release(RunningClient(next));
  EXPECT_EQ("release", recorder_.events.back());
  platform.tasks.back()->Stopped({});
  EXPECT_EQ("release", next.events.back());
}

TEST_F(RpcClientImplTest, ReleasedWhileStartingItRunsOnWithoutItsHandle) {
  const auto client = StartedClient(recorder_);
  client_table.Release(client);
  platform.Task().Started();
  EXPECT_EQ(Events{"started 0 <>"}, recorder_.Take());
  platform.Messaging().ReceiveText(QStringLiteral("text"));
  EXPECT_EQ(Events{"message <text>"}, recorder_.Take());
  EXPECT_EQ(3u, client_table.SendMessage(client, "text"));
  top.Release(manager);
  EXPECT_EQ((Events{"disconnect 0 <>", "disconnect 0 <>", "release"}), recorder_.Take());
}

// Nobody can return such a chunk, so they must not add up to the limit.
TEST_F(RpcClientImplTest, ChunksThatCannotComeBackAreFreed) {
  const auto client = RunningClient(recorder_);
  TAVORpcClientSlots slots = deaf_recorder_.ClientSlots();
  slots.OnMessage = nullptr;
  const auto deaf = top.CreateRpcClient(manager);
  client_table.StartTask(deaf, "deaf", "/libs", &slots);
  platform.Task(1).Started();

  const auto released = StartedClient(recorder_);
  client_table.Release(released);
  platform.Task(2).Started();
  for (int i = 0; i < 10000; ++i) {
    platform.Messaging(1).ReceiveText(QStringLiteral("text"));
    platform.Messaging(2).ReceiveText(QStringLiteral("text"));
  }
  EXPECT_EQ("message <text>", recorder_.events.back());
  EXPECT_EQ(10001u, recorder_.events.size());

  // One that is never returned is the caller's fault: at the limit messages are dropped.
  recorder_.Take();
  for (int i = 0; i < 8193; ++i) platform.Messaging(0).ReceiveText(QStringLiteral("text"));
  EXPECT_EQ(8192u, recorder_.events.size());
  EXPECT_EQ("[error] Too many open chunks: 8192.", log_.TakeLine());
  client_table.UnlockResources(client, recorder_.last_chunk);
  platform.Messaging(0).ReceiveText(QStringLiteral("text"));
  EXPECT_EQ(8193u, recorder_.events.size());
}

TEST_F(RpcClientImplTest, ExceptionsOfCallbacksEndAtTheBorder) {
  TAVORpcClientSlots slots{};
  slots.size = sizeof slots;
  slots.OnStarted = [](void*, int, const char*, unsigned int) { throw std::runtime_error("one"); };
  slots.OnMessage = [](void*, const char*, unsigned int) { throw 2; };
  slots.Release = [](void*) { throw std::logic_error("three"); };
  client_table.StartTask(top.CreateRpcClient(manager), "worker", "/libs", &slots);
  platform.Task().Started();
  EXPECT_EQ("[error] Stray exception in OnStarted: one", log_.TakeLine());
  platform.Messaging().ReceiveText(QStringLiteral("text"));
  EXPECT_EQ("[error] Stray exception in OnMessage: not a standard exception", log_.TakeLine());
  top.Release(manager);
  EXPECT_EQ("[error] Stray exception in Release slot: three", log_.TakeLine());
}

}  // namespace
