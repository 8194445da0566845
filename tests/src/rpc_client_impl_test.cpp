#include <stdexcept>

#include <QCoreApplication>

#include "tests/src/service_fixture.h"
#include "tests/support/declared_sizes.h"

namespace {

using test::Events;

class RpcClientImplTest : public test::ServiceTest {
 protected:
  _TAVORpcClientRef* Start(TAVORpcClientSlots* slots) {
    const auto client = top.CreateRpcClient(manager);
    EXPECT_EQ(FORGE_RESULT_OK, client_table.StartTask(client, "worker", "/libs", slots));
    return client;
  }
  _TAVORpcClientRef* Run(test::Recorder& recorder) {
    TAVORpcClientSlots slots = recorder.ClientSlots();
    const auto client = Start(&slots);
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
  const test::FakeTask& task = platform.Task(1);
  EXPECT_EQ(QStringLiteral("worker"), task.name);
  EXPECT_TRUE(task.ipc_socket);
  EXPECT_EQ((QStringList{QStringLiteral("--libs-path"), QStringLiteral("/libs")}), task.arguments);
  EXPECT_EQ(3u, client_table.SendMessage(client, "early"));
  EXPECT_EQ(Events{}, recorder_.events);  // No slots were released that were not taken over.
}

TEST_F(RpcClientImplTest, FailedStartIsReportedWithItsCause) {
  TAVORpcClientSlots slots = recorder_.ClientSlots();
  const auto client = Start(&slots);
  platform.Task().Started({7, QStringLiteral("no such application")});
  EXPECT_EQ("[info] [ta-vo] on started call error: no such application", log_.TakeLine());
  EXPECT_NE(0u, recorder_.last_chunk);
  client_table.UnlockResources(client, recorder_.last_chunk);
  EXPECT_EQ(3u, client_table.SendMessage(client, "text"));
  client_table.Release(client);  // Only makes the handle unknown.
  EXPECT_EQ(Events{"started -32603 <no such application>"}, recorder_.Take());
  top.Release(manager);
  EXPECT_EQ((Events{"disconnect 0 <>", "release"}), recorder_.Take());
}

TEST_F(RpcClientImplTest, TextsGoBothWaysAsDataMembers) {
  const auto client = Run(recorder_);
  EXPECT_EQ(0u, recorder_.last_chunk);
  EXPECT_EQ(QStringLiteral("/run/worker"), platform.Messaging().path);
  EXPECT_EQ(0u, client_table.SendMessage(client, "h\xC3\xA9llo"));
  EXPECT_EQ(0u, client_table.SendMessage(client, ""));
  EXPECT_EQ(3u, client_table.SendMessage(client, nullptr));
  EXPECT_EQ(3u, client_table.SendMessage(nullptr, "text"));
  EXPECT_EQ((Events{"h\xC3\xA9llo", ""}), platform.SentTexts());
  EXPECT_EQ(1, platform.Messaging().sent[0].size());
  Receive(0);
  for (const QJsonValue& no_text : {QJsonValue(), QJsonValue(5), QJsonValue(QJsonObject{})}) {
    platform.Messaging().Receive({{QStringLiteral("data"), no_text}});
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
  TAVORpcClientSlots slots = released.ClientSlots();
  client_table.Release(Start(&slots));
  Start(nullptr);
  for (size_t i : {1, 2}) platform.Task(i).Started();
  for (size_t i = 0; i < 3 * (kMost + 1); ++i) Receive(i % 3);
  // One that is never returned is the caller's fault: at the limit messages are dropped.
  EXPECT_EQ("[error] Too many open chunks: 8192.", log_.TakeLine());
  client_table.UnlockResources(client, recorder_.last_chunk);
  Receive(0);
  EXPECT_EQ(kMost + 1, recorder_.events.size());
  top.Release(manager);
  // It is told of the start, of each message, of two disconnects and of the release.
  EXPECT_EQ(1 + kMost + 1 + 3, released.events.size());
}

// With an application the messaging object lives on until the loop comes by.
class RpcClientImplLoopTest : public RpcClientImplTest {
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
  for (size_t i : {0, 1}) {
    EXPECT_EQ(Events{"disconnect 0 <>"}, others[i].Take());
    platform.Task(1 + i).Stopped({1, QStringLiteral("it will not die")});
    EXPECT_EQ("[error] [ta-vo] stop error: it will not die", log_.TakeLine());
    EXPECT_EQ((Events{"disconnect 0 <>", "release"}), others[i].Take());
  }
  QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
  for (const auto& task : platform.tasks) EXPECT_FALSE(task->alive);
  for (const auto& messaging : platform.messagings) EXPECT_FALSE(messaging->object);
}

using Calls = std::vector<std::pair<size_t, void*>>;  // Which field, with which user data.
Calls calls;

template <size_t kField, typename... Arguments>
void Note(void* user_data, Arguments...) {
  calls.emplace_back(kField, user_data);
}

// Every size is declared, in memory of just that size, and each field is null once.
TEST_F(RpcClientImplTest, SlotsCountAsFarAsDeclared) {
  int data = 0;
  const TAVORpcClientSlots full{0, Note<1>, Note<2>, Note<3>, Note<4>, &data};
  test::PageEnd page_end;
  test::ForEachDeclaration(full, [&](const TAVORpcClientSlots& declared, size_t) {
    const auto find = [&declared](size_t field) {
      return test::Covers(declared.size, field) ? test::FieldOf(declared, field) : nullptr;
    };
    Calls expected;
    for (const size_t field : {1, 3, 2, 2, 4}) {
      if (find(field)) expected.emplace_back(field, find(5));
    }
    calls.clear();
    const auto client = Start(page_end.Place(declared));
    platform.tasks.back()->Started();
    Receive(platform.messagings.size() - 1);
    client_table.Release(client);
    platform.tasks.back()->Stopped();
    EXPECT_EQ(expected, calls);
  });
}

}  // namespace
