#include <rapidcheck.h>

#include <cstdlib>
#include <deque>
#include <stdexcept>

#include "cw/encodable_value.h"
#include "tests/src/service_fixture.h"
#include "tests/support/scale.h"
#include "tests/support/values.h"

namespace {

using test::Events;

// Drives the intents: requests and the platform's answers to them (within the call, late, never; or
// the platform throws), registrations, their invocations and the answers to those, and the ends of
// the service. A model says what must come of each step, and when. Every callback goes on with the
// script, and may throw.
class Script : test::Service {
 public:
  explicit Script(std::vector<uint8_t> choices) : choices_(std::move(choices)) {
    platform.on_invoke = [this] { OnInvoke(); };
    GetIntents();
  }

  // Every rule that the service broke; empty if there is none.
  std::string Run() {
    while (next_ < choices_.size()) {
      Step();
      Check(!expected_.first && !invoked_, "every callback is called");
      Check(queue_.empty() || is_in_flight_, "who waits, waits for the platform");
      CheckSlots();
    }
    ReleaseManager();
    DropIntent();
    Close();
    CheckSlots();
    Check(log_.TakeLines() == lines_, "error lines");
    return broken_;
  }

 private:
  // A slot that was given to the service.
  struct Slot {
    Script* script;
    size_t number;
    bool was_accepted;
    int holders;  // The queue, or the registration and the invocations that run.
    bool was_released = false;
  };
  // Elsewhere somebody invoked the intent, and waits for the answers.
  struct Invocation {
    TAVOReplyIntentSlot slot{};
    bool is_open = false;  // Told to the caller, who has not released it.
    bool is_gone = false;  // The platform's reply function is.
    int answers = 0;
  };

  // Past the end of the script every choice is 0.
  uint8_t Choose(size_t limit) {
    return next_ < choices_.size() ? static_cast<uint8_t>(choices_[next_++] % limit) : uint8_t{0};
  }
  bool ChooseRarely() { return Choose(8) == 1; }

  void Step() {
    using Operation = void (Script::*)();
    static constexpr Operation kOperations[] = {
        &Script::Open,   &Script::Open,       &Script::Reply,          &Script::Reply,
        &Script::Invoke, &Script::Register,   &Script::Answer,         &Script::Close,
        &Script::Invoke, &Script::DropIntent, &Script::ReleaseManager, &Script::GetIntents,
    };
    if (next_ < choices_.size()) (this->*kOperations[Choose(std::size(kOperations))])();
  }

  void Check(bool holds, const char* rule) {
    if (!holds) broken_ += std::string(rule) + "; ";
  }
  void CheckSlots() {
    for (const Slot& slot : slots_) {
      Check(slot.was_released == (slot.was_accepted && slot.holders == 0), "slots are released");
    }
  }
  [[noreturn]] void Throw(const std::string& place) {
    ExpectLine("Stray exception in " + place + ": thrown");
    throw std::runtime_error("thrown");
  }
  void ExpectLine(const std::string& message) { lines_.push_back("[error] " + message); }

  Slot& Give(bool is_accepted) {
    if (!is_living_) ExpectLine("Intent Manager is not initialized.");
    return slots_.emplace_back(Slot{this, slots_.size(), is_accepted, is_accepted});
  }
  static void OnRelease(void* self) {
    auto& [script, number, was_accepted, holders, was_released] = *static_cast<Slot*>(self);
    script->Check(was_accepted && holders == 0, "a slot in use is not released");
    script->Check(!std::exchange(was_released, true), "a slot is released once");
    script->Step();
    if (script->ChooseRarely()) script->Throw("slot release");
  }

  // ---- The service ----

  void GetIntents() {
    intents_ = top.GetIntentManager(manager);
    is_living_ = true;
  }

  // The handle is kept: it leads nowhere from now on. What waits is dropped, not told.
  void ReleaseManager() {
    const auto dropped = std::exchange(queue_, {});
    for (Slot* const request : dropped) request->holders = 0;
    is_in_flight_ = is_living_ = false;
    top.Release(manager);
    for (const Slot* request : dropped) Check(request->was_released, "what waits is dropped");
  }

  // ---- Requests ----

  void Open() {
    Slot& request = Give(is_living_);
    if (is_living_) queue_.push_back(&request);
    TAVOOpenUriSlot slot{sizeof slot, OnDone, OnRelease, &request};
    const std::string uri = "\xC3\xA4:" + std::to_string(request.number);
    const ForgeResult result = is_living_ ? FORGE_RESULT_OK : FORGE_RESULT_WRONG_STATE;
    Check(intent_table.OpenUri(intents_, uri.c_str(), &slot) == result, "result of OpenUri");
  }

  void OnInvoke() {
    const auto asked = std::exchange(platform.invocations, {});
    Check(!is_in_flight_ && !queue_.empty(), "one request is sent at a time");
    if (queue_.empty()) return;
    Slot* const request = queue_.front();
    const QString uri = QStringLiteral("\u00E4:%1").arg(request->number);
    Check(asked.size() == 1 && asked[0].name == QStringLiteral("OpenURI") &&
              asked[0].options.isEmpty() &&
              asked[0].parameters == QJsonObject{{QStringLiteral("uri"), uri}},
          "the oldest request is sent");
    is_in_flight_ = true;
    Step();
    if (!ChooseRarely()) return;
    if (is_in_flight_ && queue_.front() == request) expected_ = {request, false};
    Throw("intent invocation");
  }

  void Reply() {
    if (!platform.invoker) return;
    const int code = Choose(2);
    const Slot* const oldest = is_in_flight_ ? queue_.front() : nullptr;
    if (oldest) expected_ = {oldest, code == 0};
    platform.ReplyToIntent(code);
    Check(!oldest || oldest->was_released, "a slot is released where the outcome is told");
  }

  static void OnDone(void* self, bool success) {
    auto& request = *static_cast<Slot*>(self);
    Script& script = *request.script;
    script.Check(script.expected_ == std::pair<const Slot*, bool>(&request, success), "outcome");
    script.expected_ = {};
    if (!script.queue_.empty()) script.queue_.pop_front();
    script.is_in_flight_ = false;
    script.Step();
    request.holders = 0;
    if (script.ChooseRarely()) script.Throw("slot callback");
  }

  // ---- The registered intent ----

  void Register() {
    platform.fail_intents = ChooseRarely();
    const bool is_accepted = is_living_ && !platform.fail_intents;
    if (is_living_ && !is_accepted) ExpectLine("Stray exception in RegisterIntent: std::bad_alloc");
    Slot& registration = Give(is_accepted);
    TAVORegisterIntentSlot slot{sizeof slot, HasCallback(registration) ? OnIntent : nullptr,
                                OnRelease, &registration};
    if (is_accepted) ReplaceIntent(&registration);
    const ForgeResult result = is_accepted ? FORGE_RESULT_OK : FORGE_RESULT_WRONG_STATE;
    Check(intent_table.RegisterIntent(intents_, "t\xC3\xABll", &slot) == result,
          "result of RegisterIntent");
    platform.fail_intents = false;
  }

  // The platform drops it.
  void DropIntent() {
    ReplaceIntent(nullptr);
    const auto dropped = std::exchange(platform.intents, {});
  }

  static bool HasCallback(const Slot& registration) { return registration.number % 4 > 0; }
  void ReplaceIntent(Slot* registration) {
    Slot* const replaced = std::exchange(registration_, registration);
    if (replaced) --replaced->holders;
  }

  void Invoke() {
    Slot* const registration = registration_;
    if (!registration) return;
    Invocation& invocation = invocations_.emplace_back();
    if (HasCallback(*registration)) invoked_ = &invocation;
    ++registration->holders;
    auto handler = platform.intents.at(QStringLiteral("t\u00EBll"));
    std::shared_ptr<void> guard(&invocation, [&invocation](void*) { invocation.is_gone = true; });
    handler({{QStringLiteral("not"), QStringLiteral("passed on")}},
            [&invocation, guard = std::move(guard)](const QJsonObject& answer) {
              invocation.answers += answer.value(QStringLiteral("a")) == QStringLiteral("b");
            });
    Check(invocation.is_gone == !invocation.is_open, "the platform sees its reply function go");
    --registration->holders;
    handler = nullptr;
  }

  static void OnIntent(void* self, TAVOReplyIntentSlot* slot) {
    Script& script = *static_cast<Slot*>(self)->script;
    script.Check(script.invoked_ && slot->size == sizeof *slot, "an invocation is told");
    Invocation& invocation = *std::exchange(script.invoked_, nullptr);
    invocation.slot = *slot;
    invocation.is_open = true;
    script.Step();
    if (!script.ChooseRarely()) return;
    invocation.is_open = false;  // Whoever throws has released it.
    script.Throw("slot callback");
  }

  // As often as the caller likes, also once it was released.
  void Answer() {
    constexpr uint8_t kMap[] = {13, 1, 7, 1, 'a', 7, 1, 'b'};
    if (invocations_.empty()) return;
    Invocation& invocation = invocations_[Choose(invocations_.size())];
    if (!invocation.slot.reply) return;
    const int answers = invocation.answers + invocation.is_open;
    invocation.slot.reply(invocation.slot.context, kMap, sizeof kMap);
    invocation.slot.reply(nullptr, kMap, sizeof kMap);
    Check(invocation.answers == answers, "answers are passed on while the reply slot is open");
  }

  void Close() {
    for (Invocation& invocation : invocations_) {
      if (!invocation.slot.release) continue;
      invocation.is_open = false;
      invocation.slot.release(nullptr);
      invocation.slot.release(invocation.slot.context);
      Check(invocation.is_gone, "a released reply slot lets the reply function go");
    }
  }

  const std::vector<uint8_t> choices_;
  size_t next_ = 0;
  test::LogCapture log_;
  std::string broken_;

  // The model. Elements of the deques stay where they are.
  std::deque<Slot> slots_;
  std::deque<Invocation> invocations_;
  std::deque<Slot*> queue_;
  bool is_in_flight_ = false;              // The front of the queue.
  std::pair<const Slot*, bool> expected_;  // Who is to be told what, now.
  Slot* registration_ = nullptr;
  Invocation* invoked_ = nullptr;  // Is to be told, now.
  bool is_living_ = false;         // The handle leads to the service.
  Events lines_;

  _TAVOIntentManagerRef* intents_ = nullptr;
};

class IntentManagerTest : public test::ServiceTest {};

TEST_F(IntentManagerTest, EveryScriptEndsAsTheModelSays) {
  const std::string parameters = "max_success=" + std::to_string(2000 * test::GetScale()) +
                                 " max_size=300 seed=" + std::to_string(test::GetSeed());
  setenv("RC_PARAMS", parameters.c_str(), 1);
  const auto choice = rc::gen::resize(rc::kNominalSize, rc::gen::arbitrary<uint8_t>());
  const auto choices = rc::gen::container<std::vector<uint8_t>>(choice);
  EXPECT_TRUE(rc::check([&choices] { RC_ASSERT(Script(*choices).Run() == ""); }));
}

// A platform that answers within the call must not use up the stack, however many wait.
TEST_F(IntentManagerTest, AnswersWithinTheCallDoNotNest) {
  constexpr int kRequests = 20000;
  const auto intents = top.GetIntentManager(manager);
  int released = 0;
  TAVOOpenUriSlot slot{sizeof slot, nullptr, [](void* count) { ++*static_cast<int*>(count); },
                       &released};
  for (int i = 0; i < kRequests; ++i) intent_table.OpenUri(intents, "u:", &slot);
  platform.on_invoke = [this] { platform.ReplyToIntent(0); };
  platform.ReplyToIntent(0);
  EXPECT_EQ(kRequests, released);
}

TEST_F(IntentManagerTest, RefusedCallNeverTakesTheSlotOver) {
  const auto intents = top.GetIntentManager(manager);
  const auto unknown = reinterpret_cast<_TAVOIntentManagerRef*>(manager);
  const auto release = [](void*) { ADD_FAILURE() << "The slot was taken over."; };
  TAVOOpenUriSlot uri_slot{sizeof uri_slot, nullptr, release, nullptr};
  TAVORegisterIntentSlot intent_slot{sizeof intent_slot, nullptr, release, nullptr};
  const struct {
    ForgeResult expected;
    ForgeResult actual;
    const char* error;
  } rows[] = {
      {2, intent_table.OpenUri(intents, nullptr, &uri_slot), "No uri or callback slot provided."},
      {2, intent_table.OpenUri(nullptr, "u:", nullptr), "No uri or callback slot provided."},
      {3, intent_table.OpenUri(nullptr, "u:", &uri_slot), "Intent Manager is not initialized."},
      {3, intent_table.OpenUri(unknown, "u:", &uri_slot), "Intent Manager is not initialized."},
      {2, intent_table.RegisterIntent(intents, nullptr, &intent_slot),
       "No intent name or callback slot provided."},
      {2, intent_table.RegisterIntent(nullptr, "name", nullptr),
       "No intent name or callback slot provided."},
      {3, intent_table.RegisterIntent(unknown, "name", &intent_slot),
       "Intent Manager is not initialized."},
  };
  Events errors;
  for (const auto& row : rows) {
    EXPECT_EQ(row.expected, row.actual) << row.error;
    errors.push_back(std::string("[error] ") + row.error);
  }
  EXPECT_EQ(errors, log_.TakeLines());
}

TEST_F(IntentManagerTest, WhatIsNoObjectIsAnsweredWithAnEmptyOne) {
  TAVOReplyIntentSlot reply{};
  TAVORegisterIntentSlot slot{sizeof slot,
                              [](void* kept, TAVOReplyIntentSlot* given) {
                                *static_cast<TAVOReplyIntentSlot*>(kept) = *given;
                              },
                              nullptr, &reply};
  intent_table.RegisterIntent(top.GetIntentManager(manager), "ask", &slot);
  std::vector<QJsonObject> answers;
  platform.intents.at(QStringLiteral("ask"))(
      {}, [&answers](const QJsonObject& answer) { answers.push_back(answer); });
  test::Bytes deep;
  for (int i = 0; i < 200000; ++i) deep.insert(deep.end(), {0x0c, 0x01});
  const test::Bytes rows[] = {
      {},
      test::BytesOf(cw::EncodableValue("text").Serialize()),
      test::BytesOf(cw::EncodableValue(cw::EncodableMap{{1, 1}}).Serialize()),
      // An object of a list that declares more elements, and does not hold them, than may be.
      test::FromHex("0d 01 07 01 61 0c ff 40 0d 03 00"),
      deep,
      test::FromHex("00"),
  };
  for (const auto& bytes : rows) {
    reply.reply(reply.context, bytes.data(), static_cast<unsigned>(bytes.size()));
    EXPECT_EQ("[error] Could not convert intent reply to a JSON object.", log_.TakeLines().back());
  }
  EXPECT_EQ(std::vector<QJsonObject>(std::size(rows)), answers);
  reply.release(reply.context);
}

}  // namespace
