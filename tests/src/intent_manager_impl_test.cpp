#include <rapidcheck.h>

#include <cstdlib>
#include <deque>
#include <stdexcept>

#include "tests/src/service_fixture.h"
#include "tests/support/scale.h"
#include "tests/support/values.h"

namespace {

using test::Events;

// Drives the requests: the platform answers them within the call, late or never, or throws, and the
// service ends and comes again. A model says what must come of each step, and when. Every callback
// goes on with the script, and may throw.
class Script : test::Service {
 public:
  explicit Script(std::vector<uint8_t> choices) : choices_(std::move(choices)) {
    platform.on_invoke = [this] { OnInvoke(); };
  }

  // Every rule that the service broke; empty if there is none.
  std::string Run() {
    GetIntents();
    while (next_ < choices_.size()) {
      Step();
      Check(queue_.empty() || is_in_flight_, "who waits, waits for the platform");
      for (const Request& request : requests_) CheckTold(request);
    }
    ReleaseManager();
    Check(log_.TakeLines() == lines_, "error lines");
    return broken_;
  }

 private:
  struct Request {
    Script* script;
    size_t number;
    std::string told;
    std::string expected;
  };

  // Past the end of the script every choice is 0.
  size_t Choose(size_t limit) { return next_ < choices_.size() ? choices_[next_++] % limit : 0; }
  void Step() {
    if (next_ == choices_.size()) return;
    const size_t choice = Choose(6);
    if (choice > 3) return choice > 4 ? ReleaseManager() : GetIntents();
    return choice > 1 ? Reply() : Open();
  }
  void ThrowRarely(const std::string& place) {
    if (Choose(8) != 1) return;
    lines_.push_back("[error] Stray exception in " + place + ": thrown");
    throw std::runtime_error("thrown");
  }

  void Check(bool holds, const char* rule) {
    if (!holds) broken_ += std::string(rule) + "; ";
  }
  void CheckTold(const Request& request) {
    Check(request.told == request.expected, "each slot is told its outcome, and released then");
  }

  void GetIntents() {
    intents_ = top.GetIntentManager(manager);
    is_living_ = true;
  }

  // The handle is kept: it leads nowhere from now on. What waits is dropped, not told.
  void ReleaseManager() {
    const auto dropped = std::exchange(queue_, {});
    for (Request* request : dropped) request->expected = "released";
    is_in_flight_ = is_living_ = false;
    top.Release(manager);
    for (Request* request : dropped) CheckTold(*request);
  }

  void Open() {
    Request& request = requests_.emplace_back(Request{this, requests_.size(), "", ""});
    if (is_living_) queue_.push_back(&request);
    if (!is_living_) lines_.push_back("[error] Intent Manager is not initialized.");
    const ForgeResult expected = is_living_ ? FORGE_RESULT_OK : FORGE_RESULT_WRONG_STATE;
    TAVOOpenUriSlot slot{sizeof slot, OnDone, OnRelease, &request};
    const std::string uri = "\xC3\xA4:" + std::to_string(request.number);
    const ForgeResult result = intent_table.OpenUri(intents_, uri.c_str(), &slot);
    Check(result == expected, "result of OpenUri");
  }

  void OnInvoke() {
    const auto asked = std::exchange(platform.invocations, {});
    Check(!is_in_flight_ && !queue_.empty(), "one request is sent at a time");
    if (queue_.empty()) return;
    Request* const oldest = queue_.front();
    const QString uri = QStringLiteral("\u00E4:%1").arg(oldest->number);
    Check(asked.size() == 1 && asked[0].name == QStringLiteral("OpenURI") &&
              asked[0].options.isEmpty() &&
              asked[0].parameters == QJsonObject{{QStringLiteral("uri"), uri}},
          "the oldest request is sent");
    is_in_flight_ = true;
    Step();
    const bool is_still_sent = is_in_flight_ && queue_.front() == oldest;
    if (is_still_sent) oldest->expected = "failed, released";
    ThrowRarely("intent invocation");
    if (is_still_sent) oldest->expected = "";
  }

  void Reply() {
    if (!is_in_flight_) return platform.ReplyToIntent(0);  // To a request that was dropped.
    const bool is_opened = Choose(2) == 0;
    Request* const oldest = queue_.front();
    oldest->expected = is_opened ? "opened, released" : "failed, released";
    platform.ReplyToIntent(is_opened ? 0 : 1);
    CheckTold(*oldest);
  }

  // The outcome counts as told when its callback returns: the slot is not released before.
  static void OnDone(void* self, bool success) {
    auto& [script, number, told, expected] = *static_cast<Request*>(self);
    if (!script->queue_.empty()) script->queue_.pop_front();
    script->is_in_flight_ = false;
    script->Step();
    told += success ? "opened, " : "failed, ";
    script->ThrowRarely("slot callback");
  }
  static void OnRelease(void* self) {
    auto& [script, number, told, expected] = *static_cast<Request*>(self);
    told += "released";
    script->Step();
    script->ThrowRarely("slot release");
  }

  const std::vector<uint8_t> choices_;
  size_t next_ = 0;
  test::LogCapture log_;
  _TAVOIntentManagerRef* intents_ = nullptr;
  std::string broken_;

  // The model.
  std::deque<Request> requests_;  // Each stays where it is.
  std::deque<Request*> queue_;
  bool is_in_flight_ = false;  // The front of the queue.
  bool is_living_ = false;     // The handle leads to the service.
  Events lines_;
};

class IntentModelTest : public test::TestBase {};

TEST_F(IntentModelTest, EveryScriptEndsAsTheModelSays) {
  const std::string parameters = "max_success=" + std::to_string(2000 * test::GetScale()) +
                                 " max_size=300 seed=" + std::to_string(test::GetSeed());
  setenv("RC_PARAMS", parameters.c_str(), 1);
  const auto choice = rc::gen::resize(rc::kNominalSize, rc::gen::arbitrary<uint8_t>());
  const auto choices = rc::gen::container<std::vector<uint8_t>>(choice);
  EXPECT_TRUE(rc::check([&choices] { RC_ASSERT(Script(*choices).Run() == ""); }));
}

class IntentManagerTest : public test::ServiceTest {
 protected:
  _TAVOIntentManagerRef* intents_ = top.GetIntentManager(manager);
};

// A platform that answers within the call must not use up the stack, however many wait.
TEST_F(IntentManagerTest, AnswersWithinTheCallDoNotNest) {
  constexpr int kRequests = 20000;
  int released = 0;
  TAVOOpenUriSlot slot{sizeof slot, nullptr, [](void* count) { ++*static_cast<int*>(count); },
                       &released};
  for (int i = 0; i < kRequests; ++i) intent_table.OpenUri(intents_, "u:", &slot);
  platform.on_invoke = [this] { platform.ReplyToIntent(0); };
  platform.ReplyToIntent(0);
  EXPECT_EQ(kRequests, released);
}

TEST_F(IntentManagerTest, RefusedCallNeverTakesTheSlotOver) {
  const auto unknown = reinterpret_cast<_TAVOIntentManagerRef*>(manager);
  const auto release = [](void*) { ADD_FAILURE() << "The slot was taken over."; };
  TAVOOpenUriSlot uri{sizeof uri, nullptr, release, nullptr};
  TAVORegisterIntentSlot intent{sizeof intent, nullptr, release, nullptr};
  const auto [size, open, offer] = intent_table;
  EXPECT_EQ(2u, open(intents_, nullptr, &uri));
  EXPECT_EQ(2u, open(nullptr, "u:", nullptr));
  EXPECT_EQ(Events(2, "[error] No uri or callback slot provided."), log_.TakeLines());
  EXPECT_EQ(2u, offer(intents_, nullptr, &intent));
  EXPECT_EQ(2u, offer(nullptr, "name", nullptr));
  EXPECT_EQ(Events(2, "[error] No intent name or callback slot provided."), log_.TakeLines());
  EXPECT_EQ(3u, open(nullptr, "u:", &uri));
  EXPECT_EQ(3u, open(unknown, "u:", &uri));
  EXPECT_EQ(3u, offer(unknown, "name", &intent));
  EXPECT_EQ(Events(3, "[error] Intent Manager is not initialized."), log_.TakeLines());
  platform.fail_intents = true;
  EXPECT_EQ(3u, offer(intents_, "name", &intent));
  EXPECT_EQ("[error] Stray exception in RegisterIntent: std::bad_alloc", log_.TakeLine());
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
      {test::FromHex("00"), {}},
      {{}, {}},
  };
  for (const auto& [bytes, answer] : rows) {  // The answer is empty for bytes that are no object.
    for (void* context : {static_cast<void*>(nullptr), reply.context}) {
      reply.reply(context, bytes.data(), static_cast<unsigned>(bytes.size()));
    }
    EXPECT_EQ(std::vector<QJsonObject>{answer}, std::exchange(answers, {}));
    const size_t line = log_.TakeText().find("Could not convert intent reply to a JSON object.");
    EXPECT_EQ(answer.isEmpty(), line != std::string::npos);
  }
  reply.release(nullptr);
  EXPECT_EQ(2, open.use_count());
  for (int i = 0; i < 2; ++i) reply.release(reply.context);
  EXPECT_EQ(1, open.use_count());
}

}  // namespace
