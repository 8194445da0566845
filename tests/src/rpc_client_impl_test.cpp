#include <stdexcept>

#include <QCoreApplication>

#include "tests/src/service_fixture.h"

namespace {

using test::Events;

class RpcClientImplTest : public test::ServiceTest {
 protected:
  _TAVORpcClientRef* Start(test::Recorder& recorder) {
    const auto client = top.CreateRpcClient(manager);
    TAVORpcClientSlots slots = recorder.ClientSlots();
    EXPECT_EQ(FORGE_RESULT_OK, client_table.StartTask(client, "worker", "/libs", &slots));
    return client;
  }
  _TAVORpcClientRef* Run(test::Recorder& recorder) {
    const auto client = Start(recorder);
    platform.tasks.back()->Started();
    EXPECT_EQ(Events{"started 0 <>"}, recorder.Take());
    return client;
  }
  void Receive(size_t channel) {
    platform.Messaging(channel).ReceiveText(QStringLiteral("w\u00F6rd"));
  }
};

TEST_F(RpcClientImplTest, StartsOneTaskWithASocketAndTheLibraryPath) {
  const auto client = top.CreateRpcClient(manager);
  TAVORpcClientSlots slots = recorder_.ClientSlots();
  const auto start = [&](const char* name, const char* path) {
    return client_table.StartTask(client, name, path, &slots);
  };
  EXPECT_EQ(2u, start("", "/libs"));
  EXPECT_EQ(2u, start("worker", ""));
  EXPECT_EQ(2u, client_table.StartTask(nullptr, "worker", "/libs", &slots));
  EXPECT_THROW(start(nullptr, "/libs"), std::logic_error);
  EXPECT_THROW(start("worker", nullptr), std::logic_error);
  platform.fail_start = true;
  EXPECT_EQ(3u, start("worker", "/libs"));
  EXPECT_EQ("[error] Stray exception in StartTask: std::bad_alloc", log_.TakeLine());
  platform.fail_start = false;
  EXPECT_EQ(0u, start("worker", "/libs"));
  EXPECT_EQ(3u, start("worker", "/libs"));
  ASSERT_EQ(2u, platform.tasks.size());
  test::FakeTask& task = platform.Task(1);
  EXPECT_EQ(QStringLiteral("worker"), task.name);
  EXPECT_TRUE(task.ipc_socket);
  EXPECT_EQ((QStringList{QStringLiteral("--libs-path"), QStringLiteral("/libs")}), task.arguments);
  EXPECT_EQ(3u, client_table.SendMessage(client, "early"));
  EXPECT_EQ(Events{}, recorder_.Take());  // No slots were released that were not taken over.
  task.Started();
  EXPECT_EQ(Events{"started 0 <>"}, recorder_.Take());
  EXPECT_EQ(0u, recorder_.last_chunk);
  EXPECT_EQ(QStringLiteral("/run/worker"), platform.Messaging().path);
}

TEST_F(RpcClientImplTest, FailedStartIsReportedWithItsCause) {
  const auto client = Start(recorder_);
  platform.Task().Started({7, QStringLiteral("no such application")});
  EXPECT_EQ("[info] [ta-vo] on started call error: no such application", log_.TakeLine());
  EXPECT_EQ(Events{"started -32603 <no such application>"}, recorder_.Take());
  EXPECT_NE(0u, recorder_.last_chunk);
  client_table.UnlockResources(client, recorder_.last_chunk);
  EXPECT_EQ(3u, client_table.SendMessage(client, "text"));
  client_table.Release(client);  // Only makes the handle unknown.
  top.Release(manager);
  EXPECT_EQ((Events{"disconnect 0 <>", "release"}), recorder_.Take());
}

TEST_F(RpcClientImplTest, TextsGoBothWaysAsDataMembers) {
  const auto client = Run(recorder_);
  EXPECT_EQ(0u, client_table.SendMessage(client, "h\xC3\xA9llo"));
  EXPECT_EQ(0u, client_table.SendMessage(client, ""));
  EXPECT_EQ(3u, client_table.SendMessage(client, nullptr));
  EXPECT_EQ(3u, client_table.SendMessage(nullptr, "text"));
  EXPECT_EQ((Events{"h\xC3\xA9llo", ""}), platform.SentTexts());
  EXPECT_EQ(1, platform.Messaging().sent[0].size());

  Receive(0);
  const QJsonValue no_texts[] = {QJsonValue::Undefined, QJsonValue::Null, 5, QJsonObject{}};
  for (const QJsonValue& value : no_texts) {
    platform.Messaging().Receive({{QStringLiteral("data"), value}});
  }
  EXPECT_EQ(Events{"message <w\xC3\xB6rd>"}, recorder_.Take());
  const unsigned int chunk = recorder_.last_chunk;
  for (const unsigned int id : {0u, chunk, chunk}) client_table.UnlockResources(client, id);
  EXPECT_EQ("[error] Invalid chunk ID <" + std::to_string(chunk) + ">", log_.TakeLine());
  client_table.UnlockResources(nullptr, chunk);
}

// Nobody can return a chunk of a client that was released while it started, nor one of a message
// that nobody hears, so they must not add up to the limit.
TEST_F(RpcClientImplTest, ChunksThatCannotComeBackAreFreed) {
  constexpr size_t kMost = 8192;
  const auto client = Run(recorder_);
  test::Recorder released;
  client_table.Release(Start(released));
  platform.Task(1).Started();
  client_table.StartTask(top.CreateRpcClient(manager), "deaf", "/libs", nullptr);
  platform.Task(2).Started();
  for (size_t i = 0; i < 3 * (kMost + 1); ++i) Receive(i % 3);
  // One that is never returned is the caller's fault: at the limit messages are dropped.
  EXPECT_EQ(kMost, recorder_.events.size());
  EXPECT_EQ("[error] Too many open chunks: 8192.", log_.TakeLine());
  client_table.UnlockResources(client, recorder_.last_chunk);
  Receive(0);
  EXPECT_EQ(kMost + 1, recorder_.events.size());
  top.Release(manager);
  Events expected(kMost + 1, "message <w\xC3\xB6rd>");
  expected.insert(expected.begin(), "started 0 <>");
  expected.insert(expected.end(), {"disconnect 0 <>", "disconnect 0 <>", "release"});
  EXPECT_EQ(expected, released.events);
}

// With an application the messaging object lives on until the loop comes by.
class RpcClientImplLoopTest : public RpcClientImplTest {
 private:
  int argc_ = 0;
  QCoreApplication app_{argc_, nullptr};
};

// An event loop that ended with the stop on its way destroyed the callback, and the client with it,
// under Qt's lock: the process hung in its exit. The client goes with the next stop instead, and no
// client goes with the stop of another.
TEST_F(RpcClientImplLoopTest, ReleaseStopsTheTaskAndThenDropsTheClient) {
  const auto client = Run(recorder_);
  for (int i = 0; i < 2; ++i) client_table.Release(client);
  Receive(0);
  EXPECT_EQ(3u, client_table.SendMessage(client, "late"));
  EXPECT_EQ(RuntimeManager::Task::StopFlags(), platform.Task().stop_flags);
  platform.Task().stop = nullptr;
  top.Release(manager);
  EXPECT_EQ(Events{"disconnect 0 <>"}, recorder_.Take());
  test::Recorder others[2];
  for (auto& other : others) client_table.Release(Run(other));
  EXPECT_EQ((Events{"disconnect 0 <>", "release"}), recorder_.Take());
  for (size_t i = 0; i < 2; ++i) {
    EXPECT_EQ(Events{"disconnect 0 <>"}, others[i].Take());
    platform.Task(1 + i).Stopped({1, QStringLiteral("it will not die")});
    EXPECT_EQ("[error] [ta-vo] stop error: it will not die", log_.TakeLine());
    EXPECT_EQ((Events{"disconnect 0 <>", "release"}), others[i].Take());
  }
  QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
  for (size_t i = 0; i < 3; ++i) {
    EXPECT_FALSE(platform.Task(i).alive || platform.Messaging(i).object);
  }
}

}  // namespace
