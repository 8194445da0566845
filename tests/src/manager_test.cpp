#include "forge/buffer.h"
#include "tests/src/service_fixture.h"
#include "tests/support/declared_sizes.h"

namespace {

using test::Events;

class ManagerTest : public test::ServiceTest {};

// A structure is cleared as far as it is declared. Its size is always stored, each field that is
// covered whole is filled, and nothing beyond is written.
template <typename Structure>
void CheckFilled(ForgeResult (*fill)(Structure*, uint32_t)) {
  Structure full{};
  fill(&full, sizeof full);
  for (uint32_t size = 0; size <= sizeof full + 16; ++size) {
    std::vector<uint8_t> memory(size + 16, 0xA5);
    std::vector<uint8_t> expected = memory;
    std::fill_n(expected.begin(), size, 0);
    std::memcpy(expected.data(), &size, sizeof size);
    for (size_t field = 1; field < test::kFields<Structure> && test::Covers(size, field); ++field) {
      void* const value = test::FieldOf(full, field);
      EXPECT_TRUE(value);
      std::memcpy(expected.data() + field * test::kField, &value, test::kField);
    }
    EXPECT_EQ(FORGE_RESULT_OK, fill(reinterpret_cast<Structure*>(memory.data()), size));
    EXPECT_EQ(expected, memory) << size;
  }
  EXPECT_EQ(FORGE_RESULT_INVALID_ARGUMENT, fill(nullptr, sizeof full));
}

TEST_F(ManagerTest, TablesAndViewsAreFilledAsFarAsDeclared) {
  CheckFilled(TAVOProcTableLoad);
  CheckFilled(top.RpcClientProcTableLoad);
  CheckFilled(top.RpcServerProcTableLoad);
  CheckFilled(top.IntentManagerProcTableLoad);
  EXPECT_EQ(Events(4, "[error] Null table specified."), log_.TakeLines());
  static const forge::Buffer buffer(std::vector<uint8_t>{1});
  CheckFilled<ForgeBufferView>([](auto* view, auto size) { return buffer.ToCAPI(view, size); });
  EXPECT_EQ("[error] Structure pointer is null", log_.TakeLine());
}

TEST_F(ManagerTest, UnknownHandleIsReportedAsEachEntryTells) {
  const auto client = reinterpret_cast<uintptr_t>(top.CreateRpcClient(manager));
  for (const uintptr_t unknown : {uintptr_t{0}, client, ~uintptr_t{0}}) {
    const auto ref = reinterpret_cast<_TAVOManagerRef*>(unknown);
    EXPECT_FALSE(top.GetIntentManager(ref) || top.CreateRpcClient(ref));
    EXPECT_EQ(Events(2, "[error] Runtime Manager is not initialized."), log_.TakeLines());
    EXPECT_FALSE(top.GetRpcServer(ref));  // Silent, unlike the two above.
    top.Release(ref);
  }
}

TEST_F(ManagerTest, HasOneServerAndOneIntentServiceUntilRelease) {
  platform.fail_intents = true;
  EXPECT_FALSE(top.GetIntentManager(manager));
  EXPECT_EQ(2u, log_.TakeLines().size());
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
  static std::vector<int> order;
  int numbers[] = {0, 1, 2, 3};
  const auto release = [](void* number) { order.push_back(*static_cast<int*>(number)); };
  for (int i = 0; i < 2; ++i) {
    TAVORpcClientSlots slots{sizeof slots, nullptr, nullptr, nullptr, release, &numbers[i]};
    client_table.StartTask(top.CreateRpcClient(manager), "worker", "/libs", &slots);
  }
  TAVORpcServerSlots slots{sizeof slots, nullptr, nullptr, release, &numbers[2]};
  server_table.Run(top.GetRpcServer(manager), &slots);
  TAVOOpenUriSlot uri_slot{sizeof uri_slot, nullptr, release, &numbers[3]};
  intent_table.OpenUri(top.GetIntentManager(manager), "uri:", &uri_slot);
  top.Release(manager);
  EXPECT_EQ((std::vector{0, 1, 2, 3}), order);
  for (const auto& task : platform.tasks) EXPECT_FALSE(task->alive);
}

}  // namespace
