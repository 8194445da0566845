#include <deque>
#include <stdexcept>

#include "tests/src/service_fixture.h"
#include "tests/support/values.h"

namespace {

using test::Events;

class IntentManagerTest : public test::ServiceTest {
 protected:
  using Request = std::pair<IntentManagerTest*, std::string>;

  void Open(const std::string& name) {
    Request& request = requests_.emplace_back(this, name);
    TAVOOpenUriSlot slot{sizeof slot,
                         [](void* self, bool success) { Tell(self, success ? " +" : " -"); },
                         [](void* self) { Tell(self, " ~"); }, &request};
    const std::string uri = "\xC3\xA4:" + name;
    EXPECT_EQ(FORGE_RESULT_OK, intent_table.OpenUri(intents_, uri.c_str(), &slot));
  }
  static void Tell(void* self, const std::string& kind) {
    auto& [test, name] = *static_cast<Request*>(self);
    test->Tell(kind + name);
  }

  // Notes the event, and does what the test wants to happen within it.
  void Tell(const std::string& event) {
    told_ += event;
    if (event == place_) action_();
  }

  std::deque<Request> requests_;  // Each stays where it is.
  std::string told_;
  std::string place_;
  std::function<void()> action_;
  _TAVOIntentManagerRef* intents_ = top.GetIntentManager(manager);
};

// One request is under way at a time, and its slot is released when the outcome is told. What waits
// at the manager's release is dropped, not told. A request is sent (?), opened (+) or failed (-),
// and released (~); anything may happen within each of them.
TEST_F(IntentManagerTest, RequestsAreSentInTheirOrderWhateverHappensMeanwhile) {
  const auto open = [this] { Open("d"); };
  const auto reply = [this] { platform.ReplyToIntent(0); };
  const auto raise = [] { throw std::runtime_error("thrown"); };
  const auto renew = [this] {
    top.Release(manager);
    intents_ = top.GetIntentManager(manager);
    Open("d");
  };
  const auto renew_and_raise = [&renew, &raise] {
    renew();
    raise();
  };
  const std::tuple<std::string, std::function<void()>, std::string, std::string> rows[] = {
      {" ?b", reply, " ?a -a ~a ?b +b ~b ?c +c ~c", ""},
      {" ?b", open, " ?a -a ~a ?b +b ~b ?c +c ~c ?d +d ~d", ""},
      {" ?b", raise, " ?a -a ~a ?b -b ~b ?c +c ~c", "intent invocation"},
      {" ?b", renew, " ?a -a ~a ?b ~b ~c ?d +d ~d", ""},
      {" ?b", renew_and_raise, " ?a -a ~a ?b ~b ~c ?d +d ~d", "intent invocation"},
      {" -a", reply, " ?a -a ?b ~a +b ~b ?c +c ~c", ""},
      {" -a", open, " ?a -a ?b ~a +b ~b ?c +c ~c ?d +d ~d", ""},
      {" -a", raise, " ?a -a ~a ?b +b ~b ?c +c ~c", "slot callback"},
      {" -a", renew, " ?a -a ~b ~c ?d ~a +d ~d", ""},
      {" ~b", raise, " ?a -a ~a ?b +b ~b ?c +c ~c", "slot release"},
      {" ~b", renew, " ?a -a ~a ?b +b ~b ~c ?d +d ~d", ""},
  };
  platform.on_invoke = [this] {
    const auto [intent, options, parameters] = platform.invocations.back();
    const QString uri = parameters.value(QStringLiteral("uri")).toString();
    EXPECT_TRUE(intent == QStringLiteral("OpenURI") && options.isEmpty());
    EXPECT_EQ(QStringLiteral("\u00E4:"), uri.left(2));
    Tell(" ?" + uri.mid(2).toStdString());
  };
  for (const auto& [place, action, told, stray] : rows) {
    place_ = place;
    action_ = action;
    for (const char* name : {"a", "b", "c"}) Open(name);
    for (int code : {1, 0, 0, 0, 0}) platform.ReplyToIntent(code);
    EXPECT_EQ(told, std::exchange(told_, "")) << place;
    const std::string line = "[error] Stray exception in " + stray + ": thrown";
    EXPECT_EQ(stray.empty() ? Events{} : Events{line}, log_.TakeLines()) << place;
  }
}

// A platform that answers within the call must not use up the stack, however many wait.
TEST_F(IntentManagerTest, AnswersWithinTheCallDoNotNest) {
  constexpr size_t kRequests = 20000;
  for (size_t i = 0; i < kRequests; ++i) Open("");
  platform.on_invoke = [this] { platform.ReplyToIntent(0); };
  platform.ReplyToIntent(0);
  EXPECT_EQ(kRequests * strlen(" + ~"), told_.size());
}

TEST_F(IntentManagerTest, RefusedCallNeverTakesTheSlotOver) {
  const auto unknown = reinterpret_cast<_TAVOIntentManagerRef*>(manager);
  const auto release = [](void*) { ADD_FAILURE() << "The slot was taken over."; };
  TAVOOpenUriSlot uri{sizeof uri, nullptr, release, nullptr};
  TAVORegisterIntentSlot intent{sizeof intent, nullptr, release, nullptr};
  const auto [size, open, offer] = intent_table;
  EXPECT_EQ(2u, open(intents_, nullptr, &uri));
  EXPECT_EQ(2u, open(nullptr, "u:", nullptr));
  EXPECT_EQ(2u, offer(intents_, nullptr, &intent));
  EXPECT_EQ(2u, offer(nullptr, "name", nullptr));
  EXPECT_EQ(3u, open(nullptr, "u:", &uri));
  EXPECT_EQ(3u, open(unknown, "u:", &uri));
  EXPECT_EQ(3u, offer(unknown, "name", &intent));
  platform.fail_intents = true;
  EXPECT_EQ(3u, offer(intents_, "name", &intent));
  EXPECT_EQ(8u, log_.TakeLines().size());
}

TEST_F(IntentManagerTest, AnswersArePassedOnUntilTheReplyIsReleased) {
  TAVOReplyIntentSlot reply{};
  std::vector<QJsonObject> answers;
  const auto open = std::make_shared<int>();
  const auto invoke = [&](auto callback) {
    TAVORegisterIntentSlot slot{sizeof slot, callback, nullptr, &reply};
    EXPECT_EQ(0u, intent_table.RegisterIntent(intents_, "t\xC3\xABll", &slot));
    top.Release(manager);  // The intent is offered for good.
    platform.intents.at(QStringLiteral("t\u00EBll"))(
        {}, [&answers, open](const QJsonObject& answer) { answers.push_back(answer); });
  };
  invoke([](void*, TAVOReplyIntentSlot*) { throw std::runtime_error("thrown"); });
  EXPECT_EQ("[error] Stray exception in slot callback: thrown", log_.TakeLine());
  EXPECT_EQ(1, open.use_count());  // A callback that throws has released the reply.
  intents_ = top.GetIntentManager(manager);
  invoke([](void* kept, TAVOReplyIntentSlot* given) {
    *static_cast<TAVOReplyIntentSlot*>(kept) = *given;
  });
  EXPECT_EQ(sizeof reply, reply.size);
  const std::pair<test::Bytes, QJsonObject> rows[] = {
      {test::FromHex("0d 01 07 01 61 07 01 62"), {{QStringLiteral("a"), QStringLiteral("b")}}},
      {test::FromHex("07 01 61"), {}},
      {test::FromHex("0d 01 03 01 00 00 00 03 01 00 00 00"), {}},
      // An object of a list that declares more elements, and does not hold them, than may be.
      {test::FromHex("0d 01 07 01 61 0c ff 40 0d 03 00"), {}},
      {test::Bytes(400000, 0x0c), {}},
      {{}, {}},
  };
  for (const auto& [bytes, answer] : rows) {  // The answer is empty for bytes that are no object.
    for (void* context : {static_cast<void*>(nullptr), reply.context}) {
      reply.reply(context, bytes.data(), static_cast<unsigned>(bytes.size()));
    }
    EXPECT_EQ(std::vector<QJsonObject>{answer}, std::exchange(answers, {}));
    EXPECT_EQ(answer.isEmpty(), !log_.TakeText().empty());
  }
  reply.release(nullptr);
  EXPECT_EQ(2, open.use_count());
  for (int i = 0; i < 2; ++i) reply.release(reply.context);
  EXPECT_EQ(1, open.use_count());
}

}  // namespace
