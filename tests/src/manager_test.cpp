#include "tests/src/service_fixture.h"

namespace {

using test::Events;

class ManagerTest : public test::ServiceTest {};

TEST_F(ManagerTest, IsOneAndTheSameAlways) {
  EXPECT_NE(nullptr, manager_);
  EXPECT_EQ(manager_, top_.Initialize());
  top_.Release(manager_);
  EXPECT_EQ(manager_, top_.Initialize());
}

TEST_F(ManagerTest, NullTablesAreRefused) {
  EXPECT_EQ(2u, TAVOProcTableLoad(nullptr, sizeof top_));
  EXPECT_EQ(2u, top_.RpcClientProcTableLoad(nullptr, sizeof client_table_));
  EXPECT_EQ(2u, top_.RpcServerProcTableLoad(nullptr, sizeof server_table_));
  EXPECT_EQ(2u, top_.IntentManagerProcTableLoad(nullptr, sizeof intent_table_));
  EXPECT_EQ(Events(4, "[error] Null table specified."), log_.TakeLines());
}

TEST_F(ManagerTest, MakesAClientACallAndOneServer) {
  EXPECT_NE(top_.CreateRpcClient(manager_), top_.CreateRpcClient(manager_));
  _TAVORpcServerRef* server = top_.GetRpcServer(manager_);
  EXPECT_NE(nullptr, server);
  EXPECT_EQ(server, top_.GetRpcServer(manager_));
  top_.Release(manager_);
  EXPECT_NE(server, top_.GetRpcServer(manager_));
}

TEST_F(ManagerTest, UnknownHandleIsReportedAsEachEntryTells) {
  const auto client = top_.CreateRpcClient(manager_);
  for (auto* unknown :
       {static_cast<_TAVOManagerRef*>(nullptr), reinterpret_cast<_TAVOManagerRef*>(client),
        reinterpret_cast<_TAVOManagerRef*>(~uintptr_t{0})}) {
    EXPECT_EQ(nullptr, top_.GetIntentManager(unknown));
    EXPECT_EQ("[error] Runtime Manager is not initialized.", log_.TakeLine());
    EXPECT_EQ(nullptr, top_.CreateRpcClient(unknown));
    EXPECT_EQ("[error] Runtime Manager is not initialized.", log_.TakeLine());
    EXPECT_EQ(nullptr, top_.GetRpcServer(unknown));  // Silent, unlike the two above.
    top_.Release(unknown);
  }
}

TEST_F(ManagerTest, HasOneIntentServiceUntilRelease) {
  platform_.fail_intents = true;
  EXPECT_EQ(nullptr, top_.GetIntentManager(manager_));
  EXPECT_EQ((std::vector<std::string>{"[error] Could not create Intent Manager.",
                                      "[error] Could not create Intent Manager on API side."}),
            log_.TakeLines());
  platform_.fail_intents = false;
  _TAVOIntentManagerRef* intents = top_.GetIntentManager(manager_);
  EXPECT_NE(nullptr, intents);
  EXPECT_EQ(intents, top_.GetIntentManager(manager_));
  top_.Release(manager_);
  EXPECT_NE(intents, top_.GetIntentManager(manager_));
}

TEST_F(ManagerTest, ReleaseDropsClientsInOrderThenTheServerThenTheIntents) {
  static Events order;
  order.clear();
  static const char* names[] = {"first", "second", "server", "intents"};
  const auto release = [](void* name) { order.push_back(*static_cast<const char**>(name)); };
  for (int i = 0; i < 2; ++i) {
    TAVORpcClientSlots slots{sizeof slots, nullptr, nullptr, nullptr, release, &names[i]};
    client_table_.StartTask(top_.CreateRpcClient(manager_), "worker", "/libs", &slots);
  }
  TAVORpcServerSlots slots{sizeof slots, nullptr, nullptr, release, &names[2]};
  server_table_.Run(top_.GetRpcServer(manager_), &slots);
  TAVOOpenUriSlot uri_slot{sizeof uri_slot, nullptr, release, &names[3]};
  intent_table_.OpenUri(top_.GetIntentManager(manager_), "uri:", &uri_slot);
  top_.Release(manager_);
  EXPECT_EQ((Events{"first", "second", "server", "intents"}), order);
  for (const auto& task : platform_.tasks) EXPECT_FALSE(task->alive);
}

// A caller may release the manager, or make a new client, from within any callback.
TEST_F(ManagerTest, ReleaseMayBeEnteredAgainFromACallback) {
  static TAVOProcTable* top;
  static _TAVOManagerRef* manager;
  static int calls;
  top = &top_;
  manager = manager_;
  calls = 0;
  TAVORpcClientSlots slots{};
  slots.size = sizeof slots;
  slots.OnDisconnect = [](void*, int, const char*, unsigned int) {
    ++calls;
    top->Release(manager);
    EXPECT_NE(nullptr, top->CreateRpcClient(manager));
  };
  slots.OnMessage = [](void*, const char*, unsigned int) { top->Release(manager); };
  for (int i = 0; i < 3; ++i) {
    client_table_.StartTask(top_.CreateRpcClient(manager_), "worker", "/libs", &slots);
  }
  for (const auto& task : platform_.tasks) task->Started();
  platform_.Messaging(1).ReceiveText(QStringLiteral("text"));
  EXPECT_EQ(6, calls);  // Twice for each client that is destroyed while it runs.
}

}  // namespace
