// Client and server, joined by a transport under the test's control.
#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <sstream>
#include <stdexcept>

#include "flrpc/request_ids.h"
#include "flrpc/sendable.h"
#include "tests/support/log_capture.h"
#include "tests/support/rpc_link.h"
#include "tests/support/values.h"

namespace {

using List = cw::EncodableList;
using Text = std::string;
using Value = cw::EncodableValue;
using flrpc::Message;
using Error = Message::Error;
using OptionalError = std::optional<Error>;

Text Show(const OptionalError& error) {
  return error ? std::to_string(error->code) + " " + error->message : "ok";
}
Text Show(const Message::Notification& notification) { return notification.method; }
Text Show(const Message::Response& response) {
  if (const auto* error = response.GetError()) return Show(OptionalError(*error));
  const auto* number = response.GetResult()->GetIf<int32_t>();
  return number ? std::to_string(*number) : "no number";
}

class RpcTest : public testing::Test {
 protected:
  // A callback that writes down what it is told.
  auto Tell(const char* who) {
    return [this, who](const auto& told) { Note(Text(who) + " " + Show(told)); };
  }
  void Note(const Text& event) { events_ += "[" + event + "]"; }

  RpcTest() {
    client_.OnConnected(Tell("connected"));
    client_.OnDisconnected(Tell("disconnected"));
    client_.OnNotify("news", Tell("client"));
    server_.OnConnected(Tell("server"));
    server_.OnNotify("news", Tell("server"));
    server_.OnRequest("double", [](const auto&, const Value& params, auto&& reply) {
      reply->SendResult(2 * params.Get<int32_t>());
    });
    server_.OnRequest("keep", [this](const auto&, const auto&, auto&& reply) {
      kept_.push_back(std::move(reply));
    });
  }

  // What happens in the steps, which are "ask:METHOD" or one of those below; and what is logged.
  Text Play(const Text& script) {
    std::istringstream steps(script);
    for (Text step; steps >> step;) {
      try {
        step.rfind("ask:", 0) == 0 ? Ask(step.substr(4)) : steps_.at(step)();
      } catch (const std::runtime_error&) {
        Note("threw");
      }
      for (const Text& line : log_.TakeLines()) Note(line);
    }
    return std::exchange(events_, {});
  }

  void Ask(const Text& method, const Value& params = 2) {
    client_.SendRequest(method, params, Tell("answer"));
  }
  void Refuse() {
    const auto request = Message::FromBase64(link_.to_server.at(0));
    link_.to_server.clear();
    client_.ReceiveMessage(Message::CreateError(request.GetRequest()->id, 4, "no", {}));
  }
  // The state, and how many messages are on their way to the server and to the client.
  void NoteState() {
    const char* state = client_.IsConnected() ? "connected " : "waits ";
    if (client_.HasConnectionFailed()) state = "failed ";
    Note(state + std::to_string(link_.to_server.size()) + std::to_string(link_.to_client.size()));
  }

  test::LogCapture log_;
  Text events_;
  std::vector<std::unique_ptr<flrpc::IReply>> kept_;
  test::RpcLink link_;
  flrpc::IOwnedClient& client_ = *link_.client;
  flrpc::IOwnedServer& server_ = *link_.server;
  const std::map<Text, std::function<void()>> steps_ = {
      {"?", [&] { NoteState(); }},
      {"run", [&] { client_.Run(); }},
      {"start", [&] { client_.NotifyStarted({}); }},
      {"fail", [&] { client_.NotifyStarted(Error(9, "no start")); }},
      {"end", [&] { client_.NotifyDisconnected({}); }},
      {"lose", [&] { client_.NotifyDisconnected(Error(9, "lost")); }},
      {"ask", [&] { client_.SendRequest("double", 1, nullptr); }},
      {"tell", [&] { client_.SendNotify("news", {}); }},
      {"hear", [&] { client_.ReceiveMessage(Message::CreateNotification("news", {})); }},
      {"refuse", [&] { Refuse(); }},
      {"strange", [&] { client_.ReceiveMessage(Message::CreateResponse(Message::ID(1), 1)); }},
      {"serve", [&] { server_.Run(); }},
      {"news", [&] { server_.SendNotify("news", {}); }},
      {"answer", [&] { kept_.back()->SendError(12, "late", 1); }},
      {"forget", [&] { server_.OnRequest("keep", nullptr); }},
      {"connect", [&] { link_.Connect(); }},
      {"down", [&] { link_.is_down = true; }},
      {"up", [&] { link_.is_down = false; }},
      {">", [&] { link_.DeliverToServer(); }},
      {"<", [&] { link_.DeliverToClient(); }},
      {"=", [&] { link_.DeliverAll(); }},
  };
};

TEST_F(RpcTest, ResponsesMayComeInAnyOrder) {
  EXPECT_EQ("[server ok][connected ok]", Play("connect ask:double ask:foo ask:keep > > >"));
  auto& texts = link_.to_client;
  texts = {texts.at(1), texts.at(0), texts.at(1)};
  EXPECT_EQ(
      "[answer -32601 Unknown method 'foo()'][answer 4][[error] Invalid server response]"
      "[[warn] [RPC Receiver]: unhandled message]"
      "[answer -32603 Unknown runtime error][disconnected -32603 Unknown runtime error]",
      Play("= strange end"));
}

TEST_F(RpcTest, TrafficWaitsForTheHandshake) {
  EXPECT_EQ("[waits 00][waits 10]", Play("tell news run ? start ask:double hear ? ="));
  EXPECT_EQ("[server ok][waits 02]", Play("serve serve ?"));
  EXPECT_EQ("[client news][connected ok][server news][client news][answer 4]", Play("="));
}

TEST_F(RpcTest, SecondHandshakeIsRefused) {
  EXPECT_EQ("[waits 00][server ok][waits 02]", Play("run run start > > ? serve ?"));
  EXPECT_EQ("[connected ok][connected 00][answer -32601 Unknown method 'flrpc.connected()']",
            Play("= ? ask:flrpc.connected ="));
}

TEST_F(RpcTest, FourRefusalsAreAFailure) {
  const Text error = "[[error] Connect error: no]";
  EXPECT_EQ(error + error + error, Play("ask:double run start refuse refuse refuse"));
  EXPECT_EQ("[waits 10][answer 4 no][connected 4 no][failed 00]", Play("? refuse ?"));
}

TEST_F(RpcTest, FifthAttemptIsAFailure) {
  EXPECT_EQ("[waits 40]", Play("start run run run run strange ?"));
  EXPECT_EQ(
      "[connected -32603 Cannot connect to server.]"
      "[[error] The maximum number of requests for the Connect event has been exceeded.][failed "
      "40]",
      Play("run run ?"));
}

TEST_F(RpcTest, FailureIsToldOnce) {
  EXPECT_EQ("[waits 00][answer 9 no start][connected 9 no start][failed 00]",
            Play("ask:flrpc.connected ask ? run fail ?"));
  EXPECT_EQ("[answer 9 no start][failed 00]", Play("lose run start ask:flrpc.connected ?"));
}

TEST_F(RpcTest, FailedClientAnswersItself) {
  EXPECT_EQ("[server ok][connected ok][disconnected 9 lost]", Play("connect lose"));
  EXPECT_EQ("[answer 9 lost][failed 10][server news]", Play("ask:double tell end ? ="));
}

TEST_F(RpcTest, ReplyMayComeLateOrNever) {
  EXPECT_EQ("[server ok][connected ok][connected 00]", Play("connect ask:keep = ?"));
  EXPECT_EQ("[answer 12 late]", Play("answer ="));
  EXPECT_EQ("[answer -32601 Unknown method 'keep()']", Play("ask:keep = forget ask:keep ="));
  link_.server.reset();
  EXPECT_EQ("[connected 00]", Play("answer ?"));
}

TEST_F(RpcTest, TransportMayThrow) {
  EXPECT_EQ("[threw]", Play("ask:double serve run down start up run run"));
  EXPECT_EQ("[threw][server ok]", Play("down > up >"));
  EXPECT_EQ("[answer -32603 The request could not be sent.][connected ok][threw]", Play("down <"));
  EXPECT_EQ("[threw][answer 4][disconnected 9 lost]", Play("ask:double up ask:double = lose"));
}

TEST_F(RpcTest, FailedClientHoldsNothing) {
  const auto held = std::make_shared<int>(0);
  for (int i = 0; i < 2; ++i) {
    client_.SendNotify("m", cw::CustomEncodableValue(held));
    client_.NotifyDisconnected({});
    EXPECT_EQ(1, held.use_count());
  }
}

// At the limit of a frame and beyond it, for every kind of message that is sent.
TEST_F(RpcTest, WhatThePeerWouldRefuseIsNotLostInSilence) {
  Play("connect");
  const Text fault = "it nests lists and maps more than 1024 levels deep]";
  const Text refusal = "[answer -32603 The message cannot be sent: " + fault;
  const Text dropped = "[[error] Notification 'news' dropped: " + fault;
  std::string lists;
  for (int levels = 0; levels < 1022; ++levels) lists += "0c01";
  Value nested = Value::Deserialize(forge::Buffer(test::FromHex(lists + "00")));
  for (const bool is_deepest : {true, false}) {  // The message is a map itself, its error another.
    const Value data = nested;
    nested = List(1, nested);
    kept_.clear();
    Play("ask:keep ask:keep =");
    Ask("keep", nested);
    client_.SendNotify("news", nested);
    kept_.at(0)->SendResult(nested);
    kept_.at(1)->SendError(1, "no", data);
    server_.SendNotify("news", nested);
    EXPECT_EQ(is_deepest ? "[server news][answer no number][answer 1 no][client news]"
                         : refusal + refusal + refusal + dropped + dropped,
              Play("="));
  }
}

TEST_F(RpcTest, EveryValueAroundThePayloadCounts) {  // The maps, their keys and their values.
  const Message::ID id(1);
  const std::pair<Message, uint64_t> rows[] = {
      {Message::CreateRequest(id, "m", {}), 8}, {Message::CreateNotification("m", {}), 6},
      {Message::CreateResponse(id, {}), 6},     {Message::CreateError(id, 1, "no", {}), 12},
      {Message::CreateError(1, "no", {}), 10},
  };
  for (const auto& [message, values] : rows) {
    EXPECT_EQ(values, flrpc::details::GetPayload(message).around.values);
  }
}

TEST_F(RpcTest, CapturedObjectMayCallAClientThatEnds) {
  std::shared_ptr<void> calls(nullptr, [this](void*) {
    client_.SendRequest("m", {}, nullptr);
    client_.SendNotify("m", {});
    client_.NotifyDisconnected({});
  });
  client_.OnNotify("m", [calls = std::move(calls)](const auto&) {});
  link_.client.reset();
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

// Decoders align behind an empty list of numbers, and read something else than what was written.
TEST_F(RpcTest, MessageIsCheckedAsItIsRead) {
  const Value shifted = List{std::vector<int64_t>(),
                             std::vector<uint8_t>{0, 0, 0, 12, 255, 255, 255, 255, 3, 1, 1, 1, 1}};
  int refused = 0;
  for (size_t size = 1; size <= 8; ++size) {
    const auto message = Message::CreateRequest(Message::ID(1), Text(size, 'm'), shifted);
    if (flrpc::details::FindUnsendable(message)) ++refused;
  }
  EXPECT_EQ(1, refused);
}

}  // namespace
