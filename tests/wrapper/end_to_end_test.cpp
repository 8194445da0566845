// The wrapper over libtavo.so, loaded by path, over the desk, with tasks in processes of their own.
#include <malloc.h>
#include <signal.h>

#include <optional>

#include <QJsonDocument>

#include "platform/runtime_manager/task_messaging.h"
#include "tests/support/desk_fixture.h"
#include "tests/support/log_capture.h"
#include "wrapper/manager_wrapper.h"

namespace {

using cw::EncodableValue;
using flrpc::IClient;
using flrpc::Message;
using test::WaitUntil;
using Client = std::shared_ptr<IClient>;

class EndToEndTest : public test::DeskTest {
 protected:
  void SetUp() override {
    manager_ = Load();
    ASSERT_TRUE(manager_);
    DeskTest::SetUp();
  }
  void TearDown() override {
    manager_.reset();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    DeskTest::TearDown();
  }

  static std::unique_ptr<tavo::ManagerWrapper> Load() {
    return tavo::ManagerWrapper::Create(nullptr, TAVO_TEST_LIBS);
  }

  // A client whose connection is known, for better or worse.
  Client Connect(const char* task = "wrapper_task") {
    Client client = manager_->CreateIpcClient(task);
    client->OnConnected([this](const auto& error) {
      connected_ = true;
      error_ = error;
    });
    client->Run();
    EXPECT_TRUE(WaitUntil([this] { return connected_; }));
    return client;
  }

  static Message::Response Request(const Client& client, const char* method,
                                   const EncodableValue& params) {
    std::optional<Message::Response> answer;
    client->SendRequest(method, params, [&](const auto& response) { answer = response; });
    EXPECT_TRUE(WaitUntil([&] { return answer.has_value(); }));
    return *answer;
  }

  std::unique_ptr<tavo::ManagerWrapper> manager_;
  bool connected_ = false;
  std::optional<Message::Error> error_;
};

TEST_F(EndToEndTest, RequestsAreAnsweredAndNotificationsGoBothWays) {
  const Client client = Connect();
  ASSERT_TRUE(client->IsConnected());
  const EncodableValue value = cw::EncodableMap{{"list", cw::EncodableList{1, 2.5, "three"}},
                                                {"bytes", std::vector<uint8_t>(100000, 7)}};
  EXPECT_EQ(value, *Request(client, "echo", value).GetResult());
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

TEST_F(EndToEndTest, WhatWaitsForTheConnectionKeepsItsOrder) {
  for (const bool runs_first : {true, false}) {
    const Client client = manager_->CreateIpcClient("wrapper_task");
    std::vector<int32_t> order;
    const auto send = [&](int32_t number) {
      client->SendRequest("echo", number, [&order](const Message::Response& response) {
        order.push_back(response.GetResult()->Get<int32_t>());
      });
    };
    if (runs_first) client->Run();
    for (int32_t i = 0; i < 20; ++i) send(i);
    if (!runs_first) {
      // The task may be up before: its socket is there at once, so wait for its process.
      for (int round = 0; round < 100; ++round) QCoreApplication::processEvents();
      client->Run();
    }
    for (int32_t i = 20; i < 40; ++i) send(i);
    ASSERT_TRUE(WaitUntil([&] { return order.size() == 40; }));
    EXPECT_TRUE(std::is_sorted(order.begin(), order.end()));
  }
}

TEST_F(EndToEndTest, FailedStartIsAnErrorOfTheConnection) {
  test::LogCapture log;
  const Client client = Connect("no-such-task");
  EXPECT_TRUE(client->HasConnectionFailed());
  ASSERT_TRUE(error_);
  EXPECT_EQ(-32603, error_->code);
  EXPECT_NE(std::string::npos, error_->message.find("there is no such application"));
  EXPECT_EQ(-32603, Request(client, "echo", 1).GetError()->code);
  EXPECT_EQ(1u, log.TakeLines().size());
}

TEST_F(EndToEndTest, KilledTaskIsNoticedByNobodyAndTheClientEndsWell) {
  Client client = Connect();
  const auto process = Request(client, "pid", {}).GetResult()->Get<int32_t>();
  kill(process, SIGKILL);
  ASSERT_TRUE(WaitUntil([&] { return test::IsGone(process); }));
  client->SendNotify("poke", 1);
  EXPECT_TRUE(client->IsConnected());
  client.reset();
  connected_ = false;
  EXPECT_TRUE(Connect()->IsConnected());  // The next one is unharmed.
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
  connected_ = false;
  const Client next = Connect();  // The manager makes new ones.
  EXPECT_EQ(EncodableValue(2), *Request(next, "echo", 2).GetResult());
  manager_.reset();
  EXPECT_TRUE(next->HasConnectionFailed());
}

TEST_F(EndToEndTest, ClientMayBeDroppedAtAnyTime) {
  manager_->CreateIpcClient("wrapper_task").reset();  // While it starts.
  Client client = Connect();
  bool dropped = false;
  client->SendRequest("echo", 1, [&](const auto&) {
    client.reset();  // In its own callback.
    dropped = true;
  });
  EXPECT_TRUE(WaitUntil([&] { return dropped; }));
  client = manager_->CreateIpcClient("wrapper_task");
  dropped = false;
  client->OnConnected([&](const auto&) {
    client.reset();
    dropped = true;
  });
  client->Run();
  EXPECT_TRUE(WaitUntil([&] { return dropped; }));
}

// A task serves one client: a second one on its socket is refused, and the first is unharmed.
TEST_F(EndToEndTest, SecondClientOnTheSocketIsRefused) {
  const Client client = Connect();
  ASSERT_EQ(1, Sockets().size());
  RuntimeManager::TaskMessaging intruder(directory_.filePath(QStringLiteral("tavo/")) +
                                         Sockets().first());
  std::optional<Message> answer;
  QObject::connect(&intruder, &RuntimeManager::TaskMessaging::messageReceived,
                   [&](const QJsonObject& message) {
                     const QString text = message.value(QLatin1String("data")).toString();
                     answer = Message::FromBase64(text.toStdString());
                   });
  const Message handshake = Message::CreateRequest(Message::ID("intruder"), "flrpc.connected", {});
  intruder.sendMessage({{QStringLiteral("data"), QString::fromStdString(handshake.ToBase64())}});
  ASSERT_TRUE(WaitUntil([&] { return answer.has_value(); }));
  ASSERT_TRUE(answer->GetResponse());
  ASSERT_TRUE(answer->GetResponse()->IsError());
  EXPECT_EQ(-32601, answer->GetResponse()->GetError()->code);
  EXPECT_EQ(EncodableValue(3), *Request(client, "echo", 3).GetResult());
}

TEST_F(EndToEndTest, ManyRequestsInFlightCompleteInOrderAndLeaveNothing) {
  constexpr int32_t kRequests = 10000;
  const Client client = Connect();
  const auto round = [&] {
    int32_t completed = 0;
    bool in_order = true;
    for (int32_t i = 0; i < kRequests; ++i) {
      client->SendRequest("echo", i, [&, i](const Message::Response& response) {
        in_order = in_order && i == completed && *response.GetResult() == EncodableValue(i);
        ++completed;
      });
    }
    ASSERT_TRUE(WaitUntil([&] { return completed == kRequests; }));
    EXPECT_TRUE(in_order);
  };
  round();
  const size_t before = mallinfo2().uordblks;
  round();
  const size_t after = mallinfo2().uordblks;
  // A buffer is as large as what once came together; a block a request would be 320 KB.
#ifndef TAVO_TEST_SANITIZED  // Sanitizers have a heap of their own.
  EXPECT_LT(after, before + (192 << 10));
#endif
  static_cast<void>(before < after);
}

}  // namespace
