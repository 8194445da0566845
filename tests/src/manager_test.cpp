#include "tests/src/service_fixture.h"

namespace {

using test::Events;

class ManagerTest : public test::ServiceTest {};

TEST_F(ManagerTest, NullTablesAreRefused) {
  EXPECT_EQ(2u, TAVOProcTableLoad(nullptr, sizeof top));
  EXPECT_EQ(2u, top.RpcClientProcTableLoad(nullptr, sizeof client_table));
  EXPECT_EQ(2u, top.RpcServerProcTableLoad(nullptr, sizeof server_table));
  EXPECT_EQ(2u, top.IntentManagerProcTableLoad(nullptr, sizeof intent_table));
  EXPECT_EQ(Events(4, "[error] Null table specified."), log_.TakeLines());
}

TEST_F(ManagerTest, UnknownHandleIsReportedAsEachEntryTells) {
  const auto client = top.CreateRpcClient(manager);
  for (auto* unknown :
       {static_cast<_TAVOManagerRef*>(nullptr), reinterpret_cast<_TAVOManagerRef*>(client),
        reinterpret_cast<_TAVOManagerRef*>(~uintptr_t{0})}) {
    EXPECT_EQ(nullptr, top.GetIntentManager(unknown));
    EXPECT_EQ("[error] Runtime Manager is not initialized.", log_.TakeLine());
    EXPECT_EQ(nullptr, top.CreateRpcClient(unknown));
    EXPECT_EQ("[error] Runtime Manager is not initialized.", log_.TakeLine());
    EXPECT_EQ(nullptr, top.GetRpcServer(unknown));  // Silent, unlike the two above.
    top.Release(unknown);
  }
  EXPECT_NE(client, top.CreateRpcClient(manager));
}

TEST_F(ManagerTest, HasOneServerAndOneIntentServiceUntilRelease) {
  platform.fail_intents = true;
  EXPECT_EQ(nullptr, top.GetIntentManager(manager));
  EXPECT_EQ((Events{"[error] Could not create Intent Manager.",
                    "[error] Could not create Intent Manager on API side."}),
            log_.TakeLines());
  platform.fail_intents = false;
  const auto intents = top.GetIntentManager(manager);
  const auto server = top.GetRpcServer(manager);
  EXPECT_TRUE(intents && server);
  EXPECT_EQ(intents, top.GetIntentManager(manager));
  EXPECT_EQ(server, top.GetRpcServer(manager));
  top.Release(manager);
  EXPECT_NE(intents, top.GetIntentManager(manager));
  EXPECT_NE(server, top.GetRpcServer(manager));
}

TEST_F(ManagerTest, ReleaseDropsClientsInOrderThenTheServerThenTheIntents) {
  static Events order;
  static const char* names[] = {"first", "second", "server", "intents"};
  const auto release = [](void* name) { order.push_back(*static_cast<const char**>(name)); };
  for (int i = 0; i < 2; ++i) {
    TAVORpcClientSlots slots{sizeof slots, nullptr, nullptr, nullptr, release, &names[i]};
    client_table.StartTask(top.CreateRpcClient(manager), "worker", "/libs", &slots);
  }
  TAVORpcServerSlots slots{sizeof slots, nullptr, nullptr, release, &names[2]};
  server_table.Run(top.GetRpcServer(manager), &slots);
  TAVOOpenUriSlot uri_slot{sizeof uri_slot, nullptr, release, &names[3]};
  intent_table.OpenUri(top.GetIntentManager(manager), "uri:", &uri_slot);
  top.Release(manager);
  EXPECT_EQ(Events(std::begin(names), std::end(names)), order);
  for (const auto& task : platform.tasks) EXPECT_FALSE(task->alive);
}

}  // namespace
