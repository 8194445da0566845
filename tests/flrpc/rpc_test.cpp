// Client and server, joined by a transport under the test's control.
#include <gtest/gtest.h>

#include <algorithm>
#include <stdexcept>

#include "cw/value_tree.h"
#include "flrpc/request_ids.h"
#include "flrpc/sendable.h"
#include "tests/support/log_capture.h"
#include "tests/support/rpc_link.h"

namespace {

using cw::EncodableMap;
using cw::EncodableValue;
using flrpc::Message;
using Events = std::vector<std::string>;
using OptionalError = std::optional<Message::Error>;

std::string Show(const OptionalError& error) {
  return error ? std::to_string(error->code) + " " + error->message : "ok";
}
std::string Show(const Message::Response& response) {
  if (const auto* error = response.GetError()) return Show(OptionalError(*error));
  const auto* number = response.GetResult()->GetIf<int32_t>();
  return number ? std::to_string(*number) : "other";
}

EncodableValue Nested(int32_t levels) {
  EncodableValue value = cw::EncodableList();
  for (; levels > 1; --levels) {
    cw::EncodableList around;
    around.push_back(std::move(value));  // Braces would copy it.
    value = std::move(around);
  }
  return value;
}

class RpcTest : public testing::Test {
 protected:
  RpcTest() {
    link_.server->OnRequest("double", [](const std::string&, const EncodableValue& params,
                                         std::unique_ptr<flrpc::IReply>&& reply) {
      reply->SendResult(2 * params.Get<int32_t>());
    });
    Watch();
  }

  void Watch() {
    link_.client->OnConnected(
        [this](const OptionalError& error) { Note("connected " + Show(error)); });
    link_.client->OnDisconnected(
        [this](const OptionalError& error) { Note("disconnected " + Show(error)); });
  }

  void Request(const std::string& method, int32_t number, const std::string& name = "answer") {
    link_.client->SendRequest(method, number, [this, name](const Message::Response& response) {
      Note(name + " " + Show(response));
    });
  }

  void NoteNotifications() {
    link_.client->OnNotify("news", [this](const Message::Notification&) { Note("news"); });
    link_.server->OnNotify("hint", [this](const Message::Notification&) { Note("hint"); });
  }

  void Note(const std::string& event) { events_.push_back(event); }
  Events Take() { return std::exchange(events_, {}); }

  static Message Parse(const std::string& text) { return Message::FromBase64(text); }

  test::LogCapture log_;
  Events events_;
  test::RpcLink link_;
};

TEST_F(RpcTest, RequestsGetTheirResponsesWhateverTheirOrder) {
  link_.Connect();
  EXPECT_TRUE(link_.client->IsConnected());
  EXPECT_EQ(Events{"connected ok"}, Take());
  for (int i = 1; i <= 3; ++i) Request("double", i, "r" + std::to_string(i));
  while (link_.DeliverToServer()) {
  }
  ASSERT_EQ(3u, link_.to_client.size());
  std::swap(link_.to_client[0], link_.to_client[2]);
  link_.to_client.push_back(link_.to_client[0]);       // Repeated.
  link_.to_client.erase(link_.to_client.begin() + 1);  // Dropped.
  link_.DeliverAll();
  EXPECT_EQ((Events{"r3 6", "r1 2"}), Take());
  EXPECT_EQ("[error] Invalid server response", log_.TakeLine());
  Request("foo", 1);
  link_.DeliverAll();
  EXPECT_EQ(Events{"answer -32601 Unknown method 'foo()'"}, Take());

  link_.client->NotifyDisconnected({});
  EXPECT_EQ(
      (Events{"r2 -32603 Unknown runtime error", "disconnected -32603 Unknown runtime error"}),
      Take());
}

TEST_F(RpcTest, TrafficWaitsForTheHandshakeAndKeepsItsOrder) {
  Request("double", 1, "early");
  link_.client->SendNotify("hint", 1);
  link_.server->SendNotify("news", {});
  NoteNotifications();
  link_.client->Run();
  EXPECT_TRUE(link_.to_server.empty());
  link_.client->NotifyStarted({});
  link_.client->ReceiveMessage(Message::CreateNotification("news", {}));  // Too early: it waits.
  ASSERT_EQ(1u, link_.to_server.size());
  EXPECT_TRUE(Parse(link_.to_server[0]).IsRequest("flrpc.connected"));
  link_.DeliverAll();
  EXPECT_EQ(Events{}, Take());  // The server does not run yet.
  link_.server->OnConnected([this](const OptionalError& error) { Note("server " + Show(error)); });
  link_.server->Run();
  link_.server->Run();
  ASSERT_EQ(2u, link_.to_client.size());
  EXPECT_TRUE(Parse(link_.to_client[0]).GetResponse()->GetResult()->IsNull());
  EXPECT_TRUE(Parse(link_.to_client[1]).GetNotification());
  link_.DeliverAll();
  EXPECT_EQ((Events{"server ok", "news", "connected ok", "hint", "news", "early 2"}), Take());
  link_.client->OnConnected([this](const OptionalError& error) { Note("late " + Show(error)); });
  link_.server->OnConnected([this](const OptionalError& error) { Note("late " + Show(error)); });
  EXPECT_EQ((Events{"late ok", "late ok"}), Take());
}

TEST_F(RpcTest, FourErrorsToConnectAreAFailure) {
  link_.client->Run();
  link_.client->NotifyStarted({});
  Request("double", 1);
  for (int attempt = 1; attempt <= 4; ++attempt) {
    ASSERT_EQ(1u, link_.to_server.size()) << attempt;
    const auto request = Parse(link_.to_server[0]);
    link_.to_server.clear();
    EXPECT_FALSE(link_.client->HasConnectionFailed());
    link_.client->ReceiveMessage(Message::CreateError(request.GetRequest()->id, attempt, "no", {}));
  }
  EXPECT_TRUE(link_.client->HasConnectionFailed());
  EXPECT_EQ((Events{"answer 4 no", "connected 4 no"}), Take());
  EXPECT_EQ(std::vector<std::string>(3, "[error] Connect error: no"), log_.TakeLines());
}

TEST_F(RpcTest, RepeatedRunReachesTheAttemptLimit) {
  link_.client->NotifyStarted({});
  for (int i = 0; i < 4; ++i) link_.client->Run();
  EXPECT_EQ(4u, link_.to_server.size());
  link_.client->Run();
  EXPECT_EQ("[error] The maximum number of requests for the Connect event has been exceeded.",
            log_.TakeLine());
  EXPECT_EQ(Events{"connected -32603 Cannot connect to server."}, Take());
  link_.client->Run();
  EXPECT_EQ(4u, link_.to_server.size());

  // Twice, and the second answer comes late: an unknown method by then.
  test::RpcLink twice;
  twice.client->Run();
  twice.client->Run();
  twice.server->Run();
  twice.client->NotifyStarted({});
  twice.DeliverAll();
  EXPECT_TRUE(twice.client->IsConnected());
}

TEST_F(RpcTest, FailureIsToldOnceToEverybodyWhoWaits) {
  Request("double", 1, "before");
  link_.client->SendRequest("double", 1, nullptr);
  link_.client->SendRequest("double", 1, [](const Message::Response&) { throw std::bad_alloc(); });
  link_.client->Run();
  link_.client->NotifyStarted(Message::Error(9, "no transport"));
  EXPECT_TRUE(link_.client->HasConnectionFailed() && !link_.client->IsConnected());
  EXPECT_EQ((Events{"before 9 no transport", "connected 9 no transport"}), Take());
  EXPECT_EQ("[error] Stray exception in response callback: std::bad_alloc", log_.TakeLine());
  Request("double", 1, "after");
  Request("flrpc.connected", 1, "after");
  EXPECT_EQ((Events{"after 9 no transport", "after 9 no transport"}), Take());
  link_.client->NotifyDisconnected(Message::Error(10, "again"));
  link_.client->NotifyStarted({});
  link_.client->Run();
  EXPECT_EQ(Events{}, Take());
  EXPECT_TRUE(link_.to_server.empty());
  link_.client->OnDisconnected([this](const OptionalError&) { Note("never"); });
  EXPECT_EQ(Events{}, Take());
}

TEST_F(RpcTest, FailedClientAnswersRequestsItselfAndSendsNotifications) {
  link_.Connect();
  link_.client->NotifyDisconnected(Message::Error(9, "lost"));
  Request("double", 1);
  EXPECT_EQ((Events{"connected ok", "disconnected 9 lost", "answer 9 lost"}), Take());
  EXPECT_TRUE(link_.to_server.empty());
  link_.client->SendNotify("hint", {});
  EXPECT_EQ(1u, link_.to_server.size());
}

TEST_F(RpcTest, StrangeAnswersAreToldApart) {
  link_.Connect();
  Take();
  Request("double", 4);
  const auto id = Parse(link_.to_server[0]).GetRequest()->id;
  link_.DeliverAll();
  EXPECT_EQ(Events{"answer 8"}, Take());
  const auto answer = [this](const Message::ID& to) {
    link_.client->ReceiveMessage(Message::CreateResponse(to, 1));
    return log_.TakeLine();
  };
  EXPECT_EQ("[error] Invalid server response", answer(id));
  const std::string unhandled = "[warn] [RPC Receiver]: unhandled message";
  test::RpcLink other;  // What it asks is none of ours.
  other.Connect();
  auto& ids = flrpc::details::RequestIds::Get();
  const std::string text = id.GetText();
  const std::string prefix = text.substr(0, text.find('_') + 1);
  const std::string others = ids.IdOf(*ids.NumberOf(id) + 1).GetText();
  for (const std::string& strange : {std::string("1"), std::string(), text + "0", text + " ",
                                     prefix + "0" + text.substr(prefix.size()), others}) {
    EXPECT_EQ(unhandled, answer(Message::ID(strange))) << strange;
  }
  link_.client->NotifyDisconnected({});
  EXPECT_EQ(unhandled, answer(id));
  link_.client->ReceiveMessage(Message());
  EXPECT_EQ(unhandled, log_.TakeLine());
}

TEST_F(RpcTest, LastAnsweredRequestsAreRememberedExactly) {
  constexpr uint64_t kMost = 65536;
  flrpc::details::AnsweredRequests every, second;  // Of one client, and of two that alternate.
  for (uint64_t number = 1; number <= 3 * kMost; ++number) every.Add(number);
  for (uint64_t number = 2; number <= 6 * kMost; number += 2) second.Add(number);
  EXPECT_TRUE(every.Contains(2 * kMost + 1) && every.Contains(3 * kMost));
  EXPECT_FALSE(every.Contains(3 * kMost + 1));
  EXPECT_TRUE(every.Contains(1) && second.Contains(1));  // Too old to tell.
  for (uint64_t number = 4 * kMost + 1; number <= 6 * kMost; number += 1001) {
    ASSERT_EQ(number % 2 == 0, second.Contains(number)) << number;
  }
}

TEST_F(RpcTest, ReplyMayBeKeptUsedLateOrNever) {
  std::unique_ptr<flrpc::IReply> kept;
  link_.server->OnRequest("keep", [&kept](const std::string& method, const EncodableValue&,
                                          std::unique_ptr<flrpc::IReply>&& reply) {
    EXPECT_EQ("keep", method);
    kept = std::move(reply);
  });
  link_.Connect();
  Take();
  Request("keep", 1, "first");
  link_.DeliverAll();
  EXPECT_EQ(Events{}, Take());
  kept->SendError(12, "late", EncodableMap{{"k", 1}});
  link_.DeliverAll();
  EXPECT_EQ(Events{"first 12 late"}, Take());
  // The last handler counts; a reply that outlives its server does nothing.
  link_.server->OnRequest(
      "double", [&kept](const std::string&, const EncodableValue&,
                        std::unique_ptr<flrpc::IReply>&& reply) { kept = std::move(reply); });
  Request("double", 1);
  link_.DeliverAll();
  link_.server.reset();
  kept->SendResult(1);
  EXPECT_TRUE(link_.to_client.empty());
}

TEST_F(RpcTest, SecondClientThatConnectsIsAnUnknownMethod) {
  const auto connect = [this](const char* id) {
    link_.server->ReceiveMessage(Message::CreateRequest(Message::ID(id), "flrpc.connected", {}));
  };
  connect("a");
  connect("b");
  EXPECT_TRUE(link_.to_client.empty());
  link_.server->Run();
  connect("c");
  ASSERT_EQ(3u, link_.to_client.size());
  EXPECT_TRUE(Parse(link_.to_client[0]).GetResponse()->id == "a");
  for (const size_t i : {size_t{1}, size_t{2}}) {
    const auto refused = Parse(link_.to_client[i]);
    EXPECT_EQ(-32601, refused.GetResponse()->GetError()->code);
    EXPECT_EQ("Unknown method 'flrpc.connected()'", refused.GetResponse()->GetError()->message);
  }
}

TEST_F(RpcTest, TransportThatThrowsDoesNotEndTheHandshakeForGood) {
  bool fails = true;
  std::vector<Message> sent;
  const auto server = flrpc::IOwnedServer::Create([&](Message&& message) {
    if (fails) throw std::runtime_error("no transport");
    sent.push_back(std::move(message));
  });
  server->OnConnected([this](const OptionalError& error) { Note("server " + Show(error)); });
  server->Run();
  const auto connect = [&server] {
    server->ReceiveMessage(Message::CreateRequest(Message::ID(1), "flrpc.connected", {}));
  };
  EXPECT_THROW(connect(), std::runtime_error);
  fails = false;
  connect();
  EXPECT_EQ(Events{"server ok"}, Take());
  EXPECT_EQ(1u, sent.size());

  // What has waited throws while the queue opens: the connection stands all the same.
  link_.client->OnNotify("news", [](const Message::Notification&) { throw std::bad_alloc(); });
  link_.server->SendNotify("news", {});
  link_.client->Run();
  link_.client->NotifyStarted({});
  link_.client->ReceiveMessage(Message::CreateNotification("news", {}));
  link_.server->Run();
  link_.DeliverToServer();
  EXPECT_THROW(link_.DeliverToClient(), std::bad_alloc);
  EXPECT_EQ(Events{"connected ok"}, Take());
}

TEST_F(RpcTest, ClientThatCouldNotConnectHoldsNothing) {
  const auto held = std::make_shared<int>(0);
  const auto custom = [&held] { return EncodableValue(cw::CustomEncodableValue(held)); };
  link_.client->SendNotify("before", custom());
  link_.client->SendRequest("before", custom(), nullptr);
  EXPECT_EQ(3, held.use_count());
  link_.client->NotifyDisconnected({});
  EXPECT_EQ(1, held.use_count());
  link_.client->SendNotify("after", custom());
  link_.client->SendRequest("after", custom(), nullptr);
  link_.client->ReceiveMessage(Message::CreateNotification("after", custom()));
  EXPECT_EQ(1, held.use_count());
  Take();
}

// Both limits of a frame, for every kind of message that is sent.
TEST_F(RpcTest, WhatThePeerWouldRefuseIsNotLostInSilence) {
  link_.server->OnRequest("nest",
                          [](const std::string&, const EncodableValue& levels, auto&& reply) {
                            reply->SendResult(Nested(levels.Get<int32_t>()));
                          });
  link_.server->OnRequest("fail",
                          [](const std::string&, const EncodableValue& levels, auto&& reply) {
                            reply->SendError(1, "no", Nested(levels.Get<int32_t>()));
                          });
  NoteNotifications();
  link_.Connect();
  Take();
  const std::string fault = "it nests lists and maps more than 1024 levels deep";
  const std::string refusal = "answer -32603 The message cannot be sent: " + fault;
  const auto answer = [this](const Message::Response& response) {
    Note("answer " + Show(response));
  };
  const auto run = [this] {
    link_.DeliverAll();
    return Take();
  };
  for (const int32_t levels :
       {1023, 1024}) {  // The message is a map itself, and its error another.
    const bool fits = levels == 1023;
    link_.client->SendRequest("nest", Nested(levels), answer);
    EXPECT_EQ(fits ? Events{} : Events{refusal}, Take());
    link_.to_server.clear();
    Request("nest", levels);
    EXPECT_EQ(Events{fits ? "answer other" : refusal}, run());
    Request("fail", levels - 1);
    EXPECT_EQ(Events{fits ? "answer 1 no" : refusal}, run());
    link_.client->SendNotify("hint", Nested(levels));
    link_.server->SendNotify("news", Nested(levels));
    EXPECT_EQ(fits ? Events({"hint", "news"}) : Events{}, run());
    EXPECT_EQ(fits ? Events{}
                   : Events({"[error] Notification 'hint' dropped: " + fault,
                             "[error] Notification 'news' dropped: " + fault}),
              log_.TakeLines());
  }
}

TEST_F(RpcTest, EveryValueOfAMessageCounts) {
  const auto count = [](const EncodableValue& value) {
    uint64_t values = 0;
    cw::details::Walk(value, [&values](const EncodableValue&, size_t) { return ++values > 0; });
    return values;
  };
  const EncodableValue payload = EncodableMap{{"k", cw::EncodableList{1, 2}}};
  const Message::ID id(1);
  for (const Message& message :
       {Message::CreateRequest(id, "m", payload), Message::CreateResponse(id, payload),
        Message::CreateError(id, 1, "no", payload), Message::CreateNotification("m", payload),
        Message::CreateError(1, "no", payload)}) {
    const auto [value, around] = flrpc::details::GetPayload(message);
    EXPECT_EQ(count(message.ToEncodable()), around.values + count(*value)) << message.ToBase64();
  }
}

// Decoders align behind an empty list of numbers, and read something else than what was written.
TEST_F(RpcTest, MessageThatIsReadAsAnotherIsCheckedAsItIsRead) {
  const EncodableValue shifted = cw::EncodableList{
      std::vector<int64_t>(), std::vector<uint8_t>{0, 0, 0, 12, 255, 255, 255, 255, 3, 1, 1, 1, 1}};
  int refused = 0;
  for (size_t size = 1; size <= 8; ++size) {
    const auto message = Message::CreateRequest(Message::ID(1), std::string(size, 'm'), shifted);
    const forge::Buffer bytes = message.ToEncodable().Serialize();
    const bool is_refused = cw::FindInadmissible(bytes.GetData(), bytes.GetSize());
    EXPECT_EQ(is_refused, flrpc::details::FindUnsendable(message) != nullptr) << size;
    refused += is_refused ? 1 : 0;
  }
  EXPECT_EQ(1, refused);
}

TEST_F(RpcTest, TransportThatThrowsTakesTheRequestBack) {
  Request("double", 5, "waited");
  link_.is_down = true;
  link_.client->Run();
  EXPECT_THROW(link_.client->NotifyStarted({}), std::runtime_error);
  link_.is_down = false;
  link_.client->Run();
  link_.server->Run();
  link_.DeliverToServer();
  link_.is_down = true;
  EXPECT_THROW(link_.DeliverToClient(), std::runtime_error);
  EXPECT_EQ((Events{"waited -32603 The request could not be sent.", "connected ok"}), Take());
  EXPECT_THROW(Request("double", 1), std::runtime_error);
  link_.is_down = false;
  Request("double", 2);
  link_.DeliverAll();
  link_.client->NotifyDisconnected(Message::Error(1, "gone"));
  EXPECT_EQ((Events{"answer 4", "disconnected 1 gone"}), Take());
}

TEST_F(RpcTest, CapturedObjectsMayCallTheClientOrServerThatEnds) {
  struct Caller {
    std::function<void()> call;
    ~Caller() { call(); }
  };
  auto* const client = link_.client.get();
  auto* const server = link_.server.get();
  auto calls_client = std::make_shared<Caller>();
  calls_client->call = [client] {
    client->SendRequest("m", {}, nullptr);
    client->SendNotify("m", {});
    client->OnNotify("m", nullptr);
    client->OnConnected(nullptr);
    client->OnDisconnected(nullptr);
    client->Run();
    client->NotifyStarted({});
    client->NotifyDisconnected({});
    client->ReceiveMessage(Message());
  };
  auto calls_server = std::make_shared<Caller>();
  calls_server->call = [server] {
    server->SendNotify("m", {});
    server->OnRequest("m", nullptr);
    server->OnNotify("m", nullptr);
    server->OnConnected(nullptr);
    server->Run();
    server->ReceiveMessage(Message());
  };
  client->SendRequest("m", {}, [calls_client](const Message::Response&) { ADD_FAILURE(); });
  client->OnNotify("m", [calls_client](const Message::Notification&) {});
  server->OnRequest("m", [calls_server](const std::string&, const EncodableValue&, auto&&) {});
  server->OnNotify("m", [calls_server](const Message::Notification&) {});
  calls_client.reset();
  calls_server.reset();
  link_.client.reset();
  link_.server.reset();
}

}  // namespace
