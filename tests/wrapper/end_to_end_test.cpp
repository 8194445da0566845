// The wrapper over libtavo.so as plug-ins use it.
#include <optional>

#include "tests/support/plugin_fixture.h"

namespace {

using cw::EncodableValue;
using test::WaitUntil;

class EndToEndTest : public test::PluginTest {};

TEST_F(EndToEndTest, RequestsAreAnsweredAndNotificationsGoBothWays) {
  const Client client = Connect();
  ASSERT_TRUE(client->IsConnected());
  const EncodableValue value = cw::EncodableMap{{"list", cw::EncodableList{1, 2.5, "three"}},
                                                {"bytes", std::vector<uint8_t>(100000, 7)}};
  EXPECT_EQ(value, *Request(client, "echo", value).GetResult());
  const EncodableValue records =
      cw::EncodableList(80000, cw::EncodableMap{{"id", 1}, {"name", "a record"}, {"score", 0.5}});
  EXPECT_EQ(records, *Request(client, "echo", records).GetResult());
  EXPECT_EQ(-32601, Request(client, "unknown", {}).GetError()->code);
  const auto failure = Request(client, "fail", 6);
  ASSERT_TRUE(failure.IsError());
  EXPECT_EQ(5, failure.GetError()->code);
  EXPECT_EQ("refused", failure.GetError()->message);
  EXPECT_EQ(EncodableValue(6), failure.GetError()->data);
  std::optional<EncodableValue> poked;
  client->OnNotify("poked", [&](const auto& notification) { poked = notification.params; });
  client->SendNotify("poke", "hey");
  ASSERT_TRUE(WaitUntil([&] { return poked.has_value(); }));
  EXPECT_EQ(EncodableValue("hey"), *poked);
}

TEST_F(EndToEndTest, ManagersEndIsTheClientsDisconnect) {
  // Two plug-ins of one process share the service: what one ends is ended for both.
  auto other = Load();
  const Client client = Connect();
  int disconnects = 0;
  client->OnDisconnected([&](const auto& error) {
    EXPECT_TRUE(error.has_value());
    ++disconnects;
  });
  other.reset();
  EXPECT_TRUE(WaitUntil([&] { return disconnects == 1; }));
  EXPECT_TRUE(client->HasConnectionFailed());
  EXPECT_EQ(-32603, Request(client, "echo", 1).GetError()->code);
  client->SendNotify("poke", 1);
  const Client next = Connect();  // The manager makes new ones.
  EXPECT_EQ(EncodableValue(2), *Request(next, "echo", 2).GetResult());
  const Client starting = manager_->CreateIpcClient("wrapper_task");
  manager_->CreateIpcClient("wrapper_task").reset();
  manager_.reset();
  EXPECT_TRUE(next->HasConnectionFailed());
}

}  // namespace
