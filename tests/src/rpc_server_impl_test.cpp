#include <stdexcept>

#include <QCoreApplication>

#include "tests/src/service_fixture.h"

namespace {

using test::Events;

class RpcServerImplTest : public test::ServiceTest {
 protected:
  _TAVORpcServerRef* Run() {
    TAVORpcServerSlots slots = recorder_.ServerSlots();
    _TAVORpcServerRef* server = top.GetRpcServer(manager);
    server_table.Run(server, &slots);
    return server;
  }

  test::Recorder recorder_;
};

TEST_F(RpcServerImplTest, ServesTheSocketOfTheApplication) {
  const auto server = Run();
  EXPECT_EQ(77, platform.Messaging().descriptor);
  EXPECT_EQ(Events{"started 0 <>"}, recorder_.Take());
  EXPECT_EQ(0u, server_table.SendMessage(server, "answer"));
  EXPECT_EQ(Events{"answer"}, platform.SentTexts());
  platform.Messaging().ReceiveText(QStringLiteral("question"));
  EXPECT_EQ(Events{"message <question>"}, recorder_.Take());
  EXPECT_NE(0u, recorder_.last_chunk);
  server_table.UnlockResources(server, recorder_.last_chunk);
  platform.Messaging().Receive({{QStringLiteral("data"), QJsonValue::Null}});
  EXPECT_EQ(Events{}, recorder_.Take());
}

TEST_F(RpcServerImplTest, FirstRunWins) {
  const auto server = Run();
  test::Recorder later;
  TAVORpcServerSlots slots = later.ServerSlots();
  server_table.Run(server, &slots);
  EXPECT_EQ(1u, platform.messagings.size());
  platform.Messaging().ReceiveText(QStringLiteral("text"));
  EXPECT_EQ((Events{"started 0 <>", "message <text>"}), recorder_.Take());
  top.Release(manager);
  EXPECT_EQ(Events{"release"}, recorder_.Take());
  EXPECT_EQ(Events{}, later.events);  // Never told, not even to release.
}

TEST_F(RpcServerImplTest, NothingIsSentBeforeRunOrToAnUnknownHandle) {
  const auto server = top.GetRpcServer(manager);
  EXPECT_EQ(3u, server_table.SendMessage(server, "early"));
  EXPECT_EQ(3u, server_table.SendMessage(server, nullptr));  // The text is not looked at.
  EXPECT_EQ(3u, server_table.SendMessage(nullptr, "text"));
  Run();
  EXPECT_THROW(server_table.SendMessage(server, nullptr), std::logic_error);
  EXPECT_EQ(Events{}, platform.SentTexts());
  server_table.Run(nullptr, nullptr);
  server_table.UnlockResources(nullptr, 1);
}

TEST_F(RpcServerImplTest, UnknownChunkIsReportedZeroIncluded) {
  const auto server = Run();
  server_table.UnlockResources(server, 0);
  EXPECT_EQ("[error] Invalid chunk ID <0>", log_.TakeLine());
}

// With an application the messaging object lives on until the loop comes by.
class RpcServerImplLoopTest : public RpcServerImplTest {
 private:
  int argc_ = 0;
  QCoreApplication app_{argc_, nullptr};
};

TEST_F(RpcServerImplLoopTest, NoCallbackComesOnceTheManagerDroppedIt) {
  static TAVOProcTable* top_;
  static _TAVOManagerRef* manager_;
  top_ = &top;
  manager_ = manager;
  TAVORpcServerSlots slots = recorder_.ServerSlots();
  slots.OnMessage = [](void* data, const char* text, unsigned int chunk) {
    top_->Release(manager_);  // The text stays good until the handler returns.
    test::Recorder::OnMessage(data, text, chunk);
  };
  const auto server = top.GetRpcServer(manager);
  server_table.Run(server, &slots);
  platform.Messaging().ReceiveText(QStringLiteral("last"));
  platform.Messaging().ReceiveText(QStringLiteral("late"));
  EXPECT_EQ((Events{"started 0 <>", "message <last>", "release"}), recorder_.Take());
  EXPECT_EQ(3u, server_table.SendMessage(server, "text"));
  QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
  EXPECT_EQ(nullptr, platform.Messaging().object);
}

}  // namespace
