// libtavo.so as its callers meet it: loaded by path, over the desk, with tasks in processes of
// their own.
#include <dlfcn.h>
#include <sys/resource.h>

#include <cstdlib>

#include "src/tavo_capi.h"
#include "tests/support/desk_fixture.h"
#include "tests/support/log_capture.h"

namespace {

using test::WaitUntil;

class ServiceTest : public test::DeskTest {
 protected:
  void SetUp() override {
    void* library = dlopen(TAVO_TEST_LIBS "/libtavo.so", RTLD_NOW);
    ASSERT_NE(nullptr, library) << dlerror();
    const auto load =
        reinterpret_cast<decltype(&TAVOProcTableLoad)>(dlsym(library, "TAVOProcTableLoad"));
    ASSERT_EQ(FORGE_RESULT_OK, load(&top_, sizeof top_));
    top_.RpcClientProcTableLoad(&table_, sizeof table_);
    manager_ = top_.Initialize();
    dlclose(library);  // It stays: callbacks may be pending when the last table goes.
    DeskTest::SetUp();
  }

  void TearDown() override {
    top_.Release(manager_);
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    DeskTest::TearDown();
  }

  // A client of a task, seen from the caller's side.
  struct Client {
    TAVORpcClientProcTable* table = nullptr;
    _TAVORpcClientRef* ref = nullptr;
    int started = -1;
    std::string error;
    std::vector<std::string> texts;
    int disconnects = 0;
    int releases = 0;

    static void OnStarted(void* data, int code, const char* text, unsigned int chunk) {
      auto* self = static_cast<Client*>(data);
      self->started = code;
      self->error = text;
      if (chunk != 0) self->table->UnlockResources(self->ref, chunk);
    }
    static void OnDisconnect(void* data, int, const char*, unsigned int) {
      ++static_cast<Client*>(data)->disconnects;
    }
    static void OnMessage(void* data, const char* text, unsigned int chunk) {
      auto* self = static_cast<Client*>(data);
      self->texts.push_back(text);
      self->table->UnlockResources(self->ref, chunk);
    }
    static void OnRelease(void* data) { ++static_cast<Client*>(data)->releases; }

    bool Send(const std::string& text) { return table->SendMessage(ref, text.c_str()) == 0; }
    bool Holds(size_t count) {
      return WaitUntil([this, count] { return texts.size() >= count; });
    }
  };

  // Returns when the outcome is known.
  void Start(Client& client, const char* task) {
    client.table = &table_;
    client.ref = top_.CreateRpcClient(manager_);
    TAVORpcClientSlots slots{sizeof slots,      Client::OnStarted, Client::OnDisconnect,
                             Client::OnMessage, Client::OnRelease, &client};
    client.started = -1;
    ASSERT_EQ(FORGE_RESULT_OK, table_.StartTask(client.ref, task, TAVO_TEST_LIBS, &slots));
    ASSERT_TRUE(WaitUntil([&client] { return client.started != -1; }));
  }

  void Stop(Client& client) {
    const int before = client.releases;
    table_.Release(client.ref);
    EXPECT_TRUE(WaitUntil([&] { return client.releases == before + 1; }));
  }

  Client client_;
  TAVOProcTable top_{};
  TAVORpcClientProcTable table_{};
  _TAVOManagerRef* manager_ = nullptr;
};

TEST_F(ServiceTest, TextsGoToATaskAndBack) {
  Start(client_, "service_task");
  ASSERT_EQ(0, client_.started);
  const std::vector<std::string> texts = {"hello", "", "line\nbreak\x01\"\\",
                                          "\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80",
                                          std::string(1 << 20, 'x')};
  for (const std::string& text : texts) EXPECT_TRUE(client_.Send(text));
  ASSERT_TRUE(client_.Holds(texts.size()));
  EXPECT_EQ(texts, client_.texts);
  Stop(client_);
  EXPECT_FALSE(client_.Send("late"));
  EXPECT_EQ(2, client_.disconnects);
}

TEST_F(ServiceTest, FailedStartIsToldWithItsCause) {
  test::LogCapture log;
  Start(client_, "no-such-application");
  EXPECT_EQ(-32603, client_.started);
  EXPECT_EQ(
      "Application \"no-such-application\" could not be started: there is no such application",
      client_.error);
  EXPECT_EQ("[info] [ta-vo] on started call error: " + client_.error, log.TakeLine());
}

TEST_F(ServiceTest, OnlyMessagesWithATextAreDelivered) {
  Start(client_, "desk_task");
  EXPECT_TRUE(client_.Send("odd"));
  ASSERT_TRUE(client_.Holds(1));
  EXPECT_EQ("text", client_.texts[0]);
  Stop(client_);
}

TEST_F(ServiceTest, TaskKilledInAFrameLeavesTheCallerWell) {
  Start(client_, "desk_task");
  EXPECT_TRUE(client_.Send("half-frame"));
  EXPECT_TRUE(WaitUntil([this] { return Sockets().isEmpty(); }));
  EXPECT_TRUE(client_.Send("to nobody"));
  Client next;
  Start(next, "service_task");
  EXPECT_TRUE(next.Send("text"));
  ASSERT_TRUE(next.Holds(1));
  Stop(next);
  Stop(client_);
  EXPECT_EQ(std::vector<std::string>{}, client_.texts);
}

TEST_F(ServiceTest, FloodsInBothDirectionsArriveWholeAndInOrder) {
  constexpr size_t kMessages = 20000;
  Start(client_, "service_task");
  EXPECT_TRUE(client_.Send("flood " + std::to_string(kMessages)));
  for (size_t i = 0; i < kMessages; ++i) EXPECT_TRUE(client_.Send("x" + std::to_string(i)));
  ASSERT_TRUE(client_.Holds(2 * kMessages));
  for (size_t i = 0; i < kMessages; ++i) {
    ASSERT_EQ(std::to_string(i), client_.texts[i]);
    ASSERT_EQ("x" + std::to_string(i), client_.texts[kMessages + i]);
  }
  Stop(client_);
}

TEST_F(ServiceTest, ManyStartsAndStopsLeaveNothingBehind) {
  RunNatively();
  Write(QStringLiteral("idle"), "#!/bin/sh\nexec sleep 1000\n");
  constexpr int kCycles = TAVO_TEST_DEADLINE_FACTOR == 1 ? 1000 : 50;
  const auto cycle = [this] {
    Client client;
    Start(client, "idle");
    ASSERT_EQ(0, client.started) << client.error;
    Stop(client);
  };
  cycle();
  const int descriptors = CountDescriptors();
  const int threads = CountThreads();
  for (int i = 1; i < kCycles && !HasFatalFailure(); ++i) cycle();
  QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
  EXPECT_EQ(descriptors, CountDescriptors());
  EXPECT_EQ(threads, CountThreads());
  EXPECT_FALSE(HasChildren());
}

TEST_F(ServiceTest, ReleasedManagerEndsItsTasks) {
  Start(client_, "service_task");
  Client starting;
  TAVORpcClientSlots slots{};
  slots.size = sizeof slots;
  starting.ref = top_.CreateRpcClient(manager_);
  table_.StartTask(starting.ref, "service_task", TAVO_TEST_LIBS, &slots);
  top_.Release(manager_);
  EXPECT_EQ(1, client_.releases);
  EXPECT_TRUE(WaitUntil([this] { return Sockets().isEmpty(); }));
}

// The process may end at any time; the sanitizers watch how it does.
TEST_F(ServiceTest, ProcessMayExitWithinACallback) {
  EXPECT_EXIT(
      {
        Start(client_, "service_task");
        Client leaving;
        leaving.table = &table_;
        leaving.ref = top_.CreateRpcClient(manager_);
        TAVORpcClientSlots slots{};
        slots.size = sizeof slots;
        slots.OnStarted = [](void*, int, const char*, unsigned int) { exit(9); };
        table_.StartTask(leaving.ref, "service_task", TAVO_TEST_LIBS, &slots);
        WaitUntil([] { return false; });
      },
      testing::ExitedWithCode(9), "");
}

TEST_F(ServiceTest, ProcessMayExitWithLivingClientsAndAServer) {
  EXPECT_EXIT(
      {
        auto& client = *new Client;  // Told of the end, after all statics of this program.
        Start(client, "service_task");
        client.Send("text");
        client.Holds(1);
        TAVORpcServerProcTable server_table{};
        top_.RpcServerProcTableLoad(&server_table, sizeof server_table);
        server_table.Run(top_.GetRpcServer(manager_), nullptr);
        StopApplication();
        exit(7);
      },
      testing::ExitedWithCode(7), "");
}

}  // namespace
