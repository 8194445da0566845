#include <stdexcept>

#include "tests/src/service_fixture.h"

namespace {

using test::Events;

class RpcServerImplTest : public test::ServiceTest {
 protected:
  void Run(test::Recorder& recorder) {
    TAVORpcServerSlots slots = recorder.ServerSlots();
    server_table.Run(server_, &slots);
  }

  _TAVORpcServerRef* const server_ = top.GetRpcServer(manager);
};

TEST_F(RpcServerImplTest, ServesTheSocketOfTheApplication) {
  EXPECT_EQ(3u, server_table.SendMessage(server_, "early"));
  EXPECT_EQ(3u, server_table.SendMessage(server_, nullptr));  // The text is not looked at.
  EXPECT_EQ(3u, server_table.SendMessage(nullptr, "text"));
  Run(recorder_);
  EXPECT_EQ(77, platform.Messaging().descriptor);
  EXPECT_THROW(server_table.SendMessage(server_, nullptr), std::logic_error);
  EXPECT_EQ(0u, server_table.SendMessage(server_, "answer"));
  EXPECT_EQ(Events{"answer"}, platform.SentTexts());
  platform.Messaging().ReceiveText(QStringLiteral("question"));
  EXPECT_EQ((Events{"started 0 <>", "message <question>"}), recorder_.Take());
  server_table.UnlockResources(server_, recorder_.last_chunk);
  server_table.UnlockResources(server_, 0);
  EXPECT_EQ("[error] Invalid chunk ID <0>", log_.TakeLine());
  server_table.UnlockResources(nullptr, 1);
}

TEST_F(RpcServerImplTest, FirstRunWins) {
  server_table.Run(nullptr, nullptr);
  Run(recorder_);
  test::Recorder later;
  Run(later);
  EXPECT_EQ(1u, platform.messagings.size());
  top.Release(manager);
  EXPECT_EQ((Events{"started 0 <>", "release"}), recorder_.Take());
  EXPECT_EQ(Events{}, later.events);  // Never told, not even to release.
}

}  // namespace
