#include <stdexcept>

#include "tests/src/service_fixture.h"

namespace {

using test::Events;

class RpcServerImplTest : public test::ServiceTest {};

TEST_F(RpcServerImplTest, ServesTheSocketOfTheApplicationAndTheFirstToRunIt) {
  const auto server = top.GetRpcServer(manager);
  EXPECT_EQ(3u, server_table.SendMessage(server, "early"));
  EXPECT_EQ(3u, server_table.SendMessage(server, nullptr));  // The text is not looked at.
  EXPECT_EQ(3u, server_table.SendMessage(nullptr, "text"));
  server_table.Run(nullptr, nullptr);
  test::Recorder later;  // Never told, not even to release.
  for (test::Recorder* recorder : {&recorder_, &later}) {
    TAVORpcServerSlots slots = recorder->ServerSlots();
    server_table.Run(server, &slots);
  }
  ASSERT_EQ(1u, platform.messagings.size());
  EXPECT_EQ(77, platform.Messaging().descriptor);
  EXPECT_THROW(server_table.SendMessage(server, nullptr), std::logic_error);
  EXPECT_EQ(0u, server_table.SendMessage(server, "answer"));
  EXPECT_EQ(Events{"answer"}, platform.SentTexts());
  platform.Messaging().ReceiveText(QStringLiteral("question"));
  server_table.UnlockResources(server, recorder_.last_chunk);
  server_table.UnlockResources(server, 0);
  EXPECT_EQ("[error] Invalid chunk ID <0>", log_.TakeLine());
  server_table.UnlockResources(nullptr, 1);
  top.Release(manager);
  EXPECT_EQ((Events{"started 0 <>", "message <question>", "release"}), recorder_.Take());
  EXPECT_EQ(Events{}, later.Take());
}

}  // namespace
