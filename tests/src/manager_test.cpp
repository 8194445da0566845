#include "tests/src/service_fixture.h"

namespace {

using test::Events;

class ManagerTest : public test::ServiceTest {};

TEST_F(ManagerTest, UnknownHandleIsReportedAsEachEntryTells) {
  const auto client = top.CreateRpcClient(manager);
  for (const uintptr_t unknown :
       {uintptr_t{0}, reinterpret_cast<uintptr_t>(client), ~uintptr_t{0}}) {
    const auto ref = reinterpret_cast<_TAVOManagerRef*>(unknown);
    EXPECT_FALSE(top.GetIntentManager(ref) || top.CreateRpcClient(ref));
    EXPECT_EQ(Events(2, "[error] Runtime Manager is not initialized."), log_.TakeLines());
    EXPECT_FALSE(top.GetRpcServer(ref));  // Silent, unlike the two above.
    top.Release(ref);
  }
  EXPECT_NE(client, top.CreateRpcClient(manager));
}

TEST_F(ManagerTest, HasOneServerAndOneIntentServiceUntilRelease) {
  platform.fail_intents = true;
  EXPECT_FALSE(top.GetIntentManager(manager));
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
