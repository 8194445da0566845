#include <deque>
#include <stdexcept>
#include <thread>

#include <QJsonDocument>

#include "cw/encodable_value.h"
#include "tests/src/service_fixture.h"
#include "tests/support/values.h"

namespace {

using cw::EncodableMap;
using test::Events;

class IntentManagerTest : public test::ServiceTest {
 protected:
  // A slot whose calls are events: "<name> ok", "<name> failed", "<name> released".
  struct Request {
    IntentManagerTest* test;
    std::string name;
    std::function<void()> on_done;

    static void OnDone(void* self, bool success) {
      auto& request = *static_cast<Request*>(self);
      request.test->events_.push_back(request.name + (success ? " ok" : " failed"));
      if (request.on_done) request.on_done();
    }
    static void OnRelease(void* self) {
      auto& request = *static_cast<Request*>(self);
      request.test->events_.push_back(request.name + " released");
    }
  };

  void TearDown() override {
    platform_.intents.clear();  // Their slots are released: into the test's members.
    ServiceTest::TearDown();
  }

  void Open(const std::string& uri, std::function<void()> on_done = nullptr) {
    Request& request = requests_.emplace_back(Request{this, uri, std::move(on_done)});
    TAVOOpenUriSlot slot{sizeof slot, Request::OnDone, Request::OnRelease, &request};
    ASSERT_EQ(FORGE_RESULT_OK, intent_table_.OpenUri(intents_, uri.c_str(), &slot));
  }

  Events TakeEvents() { return std::exchange(events_, {}); }

  // The URIs that went to the platform since the last call.
  Events TakeSent() {
    Events uris;
    for (const auto& invocation : std::exchange(platform_.invocations, {})) {
      EXPECT_EQ(QStringLiteral("OpenURI"), invocation.name);
      EXPECT_TRUE(invocation.options.isEmpty());
      EXPECT_EQ(1, invocation.parameters.size());
      uris.push_back(invocation.parameters.value(QStringLiteral("uri")).toString().toStdString());
    }
    return uris;
  }

  // Declared before the manager's release in TearDown needs them.
  std::deque<Request> requests_;  // Elements stay where they are.
  Events events_;
  _TAVOIntentManagerRef* intents_ = top_.GetIntentManager(manager_);
};

TEST_F(IntentManagerTest, CompletionMayReleaseTheManagerAndWithItWhatWaits) {
  Open("\xc3\xa4:", [this] { top_.Release(manager_); });
  Open("b:");
  platform_.ReplyToIntent(0);
  EXPECT_EQ(Events{"\xc3\xa4:"}, TakeSent());
  EXPECT_EQ((Events{"\xc3\xa4: ok", "b: released", "\xc3\xa4: released"}), TakeEvents());
}

TEST_F(IntentManagerTest, PlatformThatThrowsHasFailedTheRequest) {
  platform_.fail_intents = true;
  Open("a:");
  EXPECT_EQ((Events{"a: failed", "a: released"}), TakeEvents());
  platform_.fail_intents = false;
  Open("b:");
  platform_.ReplyToIntent(0);
  EXPECT_EQ((Events{"b: ok", "b: released"}), TakeEvents());
  EXPECT_EQ(1u, log_.TakeLines().size());
}

TEST_F(IntentManagerTest, PlatformThatThrowsMayHaveReleasedTheManager) {
  platform_.on_invoke = [this] {
    top_.Release(manager_);
    throw std::runtime_error("gone");
  };
  Open("a:");
  EXPECT_EQ(Events{"a: released"}, TakeEvents());
  EXPECT_EQ("[error] Stray exception in intent invocation: gone", log_.TakeLine());
}

// A platform that answers within the call must not use up the stack, however many wait.
TEST_F(IntentManagerTest, AnswersWithinTheCallDoNotNest) {
  for (int i = 0; i < 20000; ++i) Open("u:" + std::to_string(i));
  platform_.on_invoke = [this] { platform_.ReplyToIntent(0); };
  platform_.ReplyToIntent(0);
  EXPECT_EQ(20000u, TakeSent().size());
  EXPECT_EQ(40000u, TakeEvents().size());
}

// A reply may come on another thread before the entry returns: the slot goes where it is told.
TEST_F(IntentManagerTest, SlotIsReleasedByWhoeverTellsTheOutcome) {
  static std::thread::id told, released;
  platform_.on_invoke = [this] { std::thread([this] { platform_.ReplyToIntent(0); }).join(); };
  TAVOOpenUriSlot slot{sizeof slot, [](void*, bool) { told = std::this_thread::get_id(); },
                       [](void*) { released = std::this_thread::get_id(); }, nullptr};
  EXPECT_EQ(FORGE_RESULT_OK, intent_table_.OpenUri(intents_, "u:", &slot));
  EXPECT_NE(std::thread::id(), told);
  EXPECT_EQ(told, released);
  EXPECT_NE(std::this_thread::get_id(), released);
}

TEST_F(IntentManagerTest, RefusedCallNeverTakesTheSlotOver) {
  Request request{this, "refused", nullptr};
  TAVOOpenUriSlot uri_slot{sizeof uri_slot, Request::OnDone, Request::OnRelease, &request};
  TAVORegisterIntentSlot intent_slot{sizeof intent_slot, nullptr, Request::OnRelease, &request};
  const auto stale = intents_;
  top_.Release(manager_);
  intents_ = top_.GetIntentManager(manager_);
  const auto unknown = reinterpret_cast<_TAVOIntentManagerRef*>(manager_);
  const struct {
    ForgeResult expected;
    ForgeResult actual;
    const char* error;
  } rows[] = {
      {2, intent_table_.OpenUri(intents_, nullptr, &uri_slot), "No uri or callback slot provided."},
      {2, intent_table_.OpenUri(nullptr, "u:", nullptr), "No uri or callback slot provided."},
      {3, intent_table_.OpenUri(nullptr, "u:", &uri_slot), "Intent Manager is not initialized."},
      {3, intent_table_.OpenUri(stale, "u:", &uri_slot), "Intent Manager is not initialized."},
      {3, intent_table_.OpenUri(unknown, "u:", &uri_slot), "Intent Manager is not initialized."},
      {2, intent_table_.RegisterIntent(intents_, nullptr, &intent_slot),
       "No intent name or callback slot provided."},
      {2, intent_table_.RegisterIntent(nullptr, "name", nullptr),
       "No intent name or callback slot provided."},
      {3, intent_table_.RegisterIntent(unknown, "name", &intent_slot),
       "Intent Manager is not initialized."},
  };
  const auto lines = log_.TakeLines();
  for (size_t i = 0; i < std::size(rows); ++i) {
    EXPECT_EQ(rows[i].expected, rows[i].actual) << i;
    EXPECT_EQ(std::string("[error] ") + rows[i].error, lines[i]) << i;
  }
  platform_.fail_intents = true;
  EXPECT_EQ(3u, intent_table_.RegisterIntent(intents_, "name", &intent_slot));
  EXPECT_EQ("[error] Stray exception in RegisterIntent: std::bad_alloc", log_.TakeLine());
  EXPECT_EQ(Events{}, TakeEvents());
}

class RegisteredIntentTest : public IntentManagerTest {
 protected:
  // Registers "ask", whose callback keeps the reply slots.
  void Register() {
    TAVORegisterIntentSlot slot{
        sizeof slot,
        [](void* self, TAVOReplyIntentSlot* reply) {
          static_cast<RegisteredIntentTest*>(self)->slots_.push_back(*reply);
        },
        [](void* self) { static_cast<RegisteredIntentTest*>(self)->events_.push_back("released"); },
        this};
    ASSERT_EQ(FORGE_RESULT_OK, intent_table_.RegisterIntent(intents_, "ask", &slot));
  }

  // The platform invokes the intent; its answers are added to answers_, "gone" when the reply
  // function is destroyed.
  void Invoke() {
    const std::shared_ptr<void> guard(nullptr, [this](void*) { answers_.push_back("gone"); });
    platform_.intents.at(QStringLiteral("ask"))(
        {{QStringLiteral("not"), QStringLiteral("passed on")}},
        [this, guard](const QJsonObject& answer) {
          answers_.push_back(QJsonDocument(answer).toJson(QJsonDocument::Compact).toStdString());
        });
  }

  Events TakeAnswers() { return std::exchange(answers_, {}); }

  std::vector<TAVOReplyIntentSlot> slots_;
  Events answers_;
};

TEST_F(RegisteredIntentTest, WhatIsNoObjectIsAnsweredWithAnEmptyOne) {
  Register();
  Invoke();
  const std::string error = "[error] Could not convert intent reply to a JSON object.";
  test::Bytes deep;
  for (int i = 0; i < 200000; ++i) deep.insert(deep.end(), {0x0c, 0x01});
  const test::Bytes rows[] = {
      test::BytesOf(cw::EncodableValue("text").Serialize()),
      test::BytesOf(cw::EncodableValue(EncodableMap{{1, 1}}).Serialize()),
      test::FromHex("0c ff ff ff ff ff"),  // More than there can be.
      deep,                                // Would end the process while it is decoded.
      test::FromHex("00"),
  };
  for (const auto& bytes : rows) {
    slots_[0].reply(slots_[0].context, bytes.data(), static_cast<unsigned>(bytes.size()));
    EXPECT_EQ(Events{"{}"}, TakeAnswers());
    EXPECT_EQ(error, log_.TakeLines().back());
  }
  slots_[0].release(slots_[0].context);
  TakeAnswers();
}

TEST_F(RegisteredIntentTest, MisuseOfTheReplySlotIsHarmless) {
  Register();
  Invoke();
  const TAVOReplyIntentSlot slot = slots_[0];
  const uint8_t byte = 0;
  slot.reply(slot.context, nullptr, 5);
  slot.reply(slot.context, &byte, 0);
  EXPECT_EQ((Events{"{}", "{}"}), TakeAnswers());
  EXPECT_EQ(2u, log_.TakeLines().size());
  slot.reply(nullptr, &byte, 1);
  slot.release(nullptr);
  slot.reply(reinterpret_cast<void*>(~uintptr_t{0}), &byte, 1);
  slot.release(slot.context);
  EXPECT_EQ(Events{"gone"}, TakeAnswers());
  slot.release(slot.context);
  slot.reply(slot.context, &byte, 1);
  EXPECT_EQ(Events{}, TakeAnswers());
}

TEST_F(RegisteredIntentTest, CallbackThatIsMissingOrThrowsLeavesNobodyWaiting) {
  TAVORegisterIntentSlot slot{sizeof slot, nullptr, nullptr, nullptr};
  EXPECT_EQ(FORGE_RESULT_OK, intent_table_.RegisterIntent(intents_, "ask", &slot));
  Invoke();
  EXPECT_EQ(Events{"gone"}, TakeAnswers());
  slot.callback = [](void*, TAVOReplyIntentSlot*) { throw std::runtime_error("unhappy"); };
  slot.release = [](void*) { throw std::runtime_error("unhappy still"); };
  EXPECT_EQ(FORGE_RESULT_OK, intent_table_.RegisterIntent(intents_, "ask", &slot));
  Invoke();
  EXPECT_EQ(Events{"gone"}, TakeAnswers());
  EXPECT_EQ("[error] Stray exception in slot callback: unhappy", log_.TakeLine());
  platform_.intents.clear();
  EXPECT_EQ("[error] Stray exception in slot release: unhappy still", log_.TakeLine());
}

}  // namespace
