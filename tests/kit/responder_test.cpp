// Typed handlers over a server, asked by a plain client that plays a caller.
#include "kit/responder.h"

#include <stdexcept>
#include <thread>

#include "tests/support/log_capture.h"
#include "tests/support/rpc_link.h"
#include "tests/support/values.h"

namespace {

using Map = cw::EncodableMap;
using Text = std::string;
using Value = cw::EncodableValue;
using tavo::kit::Request;
using tavo::kit::Responder;

class ResponderTest : public test::LogTest {
 protected:
  ResponderTest() {
    responder_->Handle("double", [](int64_t number, Request<int64_t> request) {
      request.Finish(2 * number);
      request.Finish(0);
      request.Fail(1, "late");
      request.Progress(Text("late"));
    });
    responder_->Handle("drop", [](const Value&, const Request<Value>&) {});
    responder_->Handle<Value, Value>("throw", [](const auto&, const auto& request) {
      request.Progress(1);
      throw std::runtime_error("no idea");
    });
    responder_->Handle("fail", [](const Value& value, Request<Value> request) {
      request.Fail(7, "seven", value);
    });
    responder_->Handle("keep", [this](const Value&, Request<Value> request) {
      kept_.push_back(request);
      request.OnCancel([this, request] { events_ += "[cancel]"; });
    });
    link_.client->OnNotify("$/progress", [this](const auto& progress) {
      events_ += "[progress " + tools::Describe(progress.params) + "]";
    });
    link_.Connect();
  }

  // What comes back: answers and progress, in their order.
  Text Ask(const Text& method, const Value& params) {
    link_.client->SendRequest(method, params, [this](const auto& response) {
      const auto* const error = response.GetError();
      const Text data = error && error->code > 0 ? " " + tools::Describe(error->data) : "";
      events_ += "[" +
                 (error ? std::to_string(error->code) + " " + error->message + data
                        : tools::Describe(*response.GetResult())) +
                 "]";
    });
    return Deliver();
  }
  Text Cancel(const Value& params) {
    link_.client->SendNotify("$/cancel", params);
    return Deliver();
  }
  Text Deliver() {
    link_.DeliverAll();
    return std::exchange(events_, {});
  }

  static Value Wrap(int64_t token, const Value& params) {
    return Map{{"$call", token}, {"$params", params}};
  }

  test::RpcLink link_;
  std::shared_ptr<Responder> responder_ = Responder::Create(link_.server);
  std::vector<Request<Value>> kept_;
  Text events_;
};

TEST_F(ResponderTest, EveryRequestIsAnsweredOnce) {
  const Text failed = "The handler of \"throw\" failed: no idea";
  const Text progress = "[progress map (2)\n  \"$call\": int64 1\n  \"value\": int32 1]";
  const struct {
    Text method;
    Value params;
    Text answer;
  } kRows[] = {
      {"$/ping", {}, "[null]"},
      {"double", int64_t{21}, "[int64 42]"},
      {"double", Wrap(1, int64_t{21}), "[int64 42]"},
      {"double", Wrap(1, "text"), "[-32602 params: an integer is expected, not a text]"},
      {"drop", Wrap(1, {}), "[-32603 The request \"drop\" was dropped without an answer]"},
      {"throw", {}, "[-32603 " + failed + "]"},
      {"throw", Wrap(1, {}), progress + "[-32603 " + failed + "]"},
      {"fail", Wrap(1, {}), "[7 seven null]"},  // What only resembles a wrapper is a parameter.
      {"fail", Map{{"$call", "1"}, {"$params", 2}},
       "[7 seven map (2)\n  \"$call\": text \"1\"\n  \"$params\": int32 2]"},
      {"fail", Map{{"$call", 1}}, "[7 seven map (1)\n  \"$call\": int32 1]"},
  };
  for (const auto& row : kRows) {
    SCOPED_TRACE(row.method);
    EXPECT_EQ(row.answer, Ask(row.method, row.params));
    if (row.method == "throw") ExpectError(failed);
  }
  const Map features = {{"cancel", true},
                        {"progress", true},
                        {"methods", cw::EncodableList{"double", "drop", "fail", "keep", "throw"}}};
  EXPECT_EQ("[" + tools::Describe(features) + "]", Ask("$/features", {}));
}

TEST_F(ResponderTest, CancelReachesItsRequestAlone) {
  for (const Value& params : {Wrap(1, {}), Wrap(2, {}), Value()})
    EXPECT_EQ("", Ask("keep", params));
  for (const Value& damaged : {Value(), Value("text"), Value(Map{{"$call", "1"}})}) {
    EXPECT_EQ("", Cancel(damaged));
    EXPECT_EQ("[warn] A cancel without the token of a call is ignored", log_.TakeLine());
  }
  EXPECT_EQ("", Cancel(Map{{"$call", 3}}));
  EXPECT_EQ("[cancel]", Cancel(Map{{"$call", 1}}));
  EXPECT_EQ("", Cancel(Map{{"$call", 1}}));
  EXPECT_TRUE(kept_[0].IsCancelled() && !kept_[1].IsCancelled() && !kept_[2].IsCancelled());
  kept_[0].OnCancel([this] { events_ += "[at once]"; });
  kept_[0].Progress(1);
  kept_[0].Finish(1);
  kept_[1].Finish(2);
  kept_[2].Progress(3);  // This caller gave no token.
  kept_[2].Finish(3);
  EXPECT_EQ("[at once][int32 1][int32 2][int32 3]", Deliver());
  EXPECT_EQ("", Cancel(Map{{"$call", 2}}));
}

TEST_F(ResponderTest, CallsWithOneTokenAreServed) {
  for (int i = 0; i < 2; ++i) EXPECT_EQ("", Ask("keep", Wrap(1, {})));
  EXPECT_EQ(
      "[warn] A call of \"keep\" has the token of another call, 1: it is served without a token",
      log_.TakeLine());
  kept_[1].Finish(2);
  EXPECT_EQ("[int32 2]", Deliver());
  EXPECT_EQ("[cancel]", Cancel(Map{{"$call", 1}}));
}

TEST_F(ResponderTest, RequestsMayOutliveResponderAndServer) {
  Ask("keep", Wrap(1, {}));
  Ask("keep", {});
  const auto second = std::make_shared<int>();
  kept_[0].OnCancel([second, request = kept_[0]] {});
  responder_.reset();
  EXPECT_EQ(1, second.use_count());
  EXPECT_EQ("[-32601 Unknown method 'keep()']", Ask("keep", Wrap(2, {})));
  EXPECT_EQ("", Cancel(Map{{"$call", 1}}));
  link_.server.reset();
  for (const auto& request : kept_) {
    EXPECT_TRUE(request.IsCancelled());
    request.Progress(1);
    request.Finish(1);
  }
  EXPECT_TRUE(link_.to_client.empty());
  EXPECT_EQ(nullptr, Responder::Create(nullptr));
}

TEST_F(ResponderTest, SubscriptionsEndTheirHandlers) {
  const auto subscribe = [this] {
    return responder_->OnNotify<int64_t>("news", [this, count = 0](int64_t number) mutable {
      if (number == 0) throw std::runtime_error("none");
      events_ += "[" + std::to_string(number) + ", " + std::to_string(++count) + "]";
    });
  };
  const auto tell = [this](const Value& value) {
    link_.client->SendNotify("news", value);
    return Deliver();
  };
  auto first = subscribe();
  auto second = subscribe();
  EXPECT_EQ("[5, 1][5, 1]", tell(int64_t{5}));
  second = {};
  EXPECT_EQ("[6, 2]", tell(int64_t{6}));
  EXPECT_EQ("", tell("text"));
  EXPECT_EQ("[warn] Notification \"news\" is ignored: params: an integer is expected, not a text",
            log_.TakeLine());
  EXPECT_EQ("", tell(int64_t{0}));
  EXPECT_NE(Text::npos, log_.TakeLine().find("none"));
  tavo::kit::Subscription ended;
  const auto ending = responder_->OnNotify<int64_t>("end", [&ended](int64_t) { ended.End(); });
  ended = responder_->OnNotify<int64_t>("end", [this](int64_t) { events_ += "called"; });
  link_.client->SendNotify("end", int64_t{1});
  EXPECT_EQ("", Deliver());
  link_.client->OnNotify("seen",
                         [this](const auto& news) { events_ += tools::Describe(news.params); });
  responder_->Notify("seen", int64_t{7});
  EXPECT_EQ("int64 7", Deliver());
  responder_.reset();
  EXPECT_EQ("", tell(int64_t{8}));
}

// Four threads answer, tell progress and set functions, while the caller cancels.
TEST_F(ResponderTest, OneOfManyThreadsAnswers) {
  for (int64_t token = 0; token < 200; ++token) {
    Ask("keep", Wrap(token, {}));
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
      threads.emplace_back([i, request = kept_.back()] {
        request.OnCancel([request] {});
        if (i == 0 || request.IsCancelled()) request.Fail(7, "no", {});
        request.Finish(i);
      });
    }
    kept_.clear();
    link_.server->ReceiveMessage(
        flrpc::Message::CreateNotification("$/cancel", Map{{"$call", token}}));
    for (auto& thread : threads) thread.join();
    Text answer = Deliver();
    if (answer.rfind("[cancel]", 0) == 0) answer.erase(0, 8);
    EXPECT_EQ(1, std::count(answer.begin(), answer.end(), ']')) << answer;
  }
}

}  // namespace
