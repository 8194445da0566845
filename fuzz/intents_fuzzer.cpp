// The input is a script that drives the service's intents: requests and their answers (within the
// call, late, twice, never, from an invoker that is gone; by a platform that throws),
// registrations, their invocations and the answers to those. A model tells what must come of each
// step, and when. Callbacks go on with the script.
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <QCoreApplication>
#include <QEvent>
#include <QPointer>

#include "cw/encodable_value.h"
#include "fuzz/input.h"
#include "src/tavo_capi.h"
#include "tests/support/fake_platform.h"

namespace {

using RuntimeManager::IntentsInvoker;

constexpr int kDeepestCallback = 4;
constexpr const char* kNames[] = {"ask", "tell", ""};

class Script {
 public:
  Script(const uint8_t* data, size_t size) : choices_(data, size) {
    TAVOProcTableLoad(&top_, sizeof top_);
    top_.IntentManagerProcTableLoad(&table_, sizeof table_);
    manager_ = top_.Initialize();
    platform_.on_invoke = [this] { OnInvoke(); };
    GetIntents();
  }

  void Run() {
    while (!choices_.IsEmpty()) {
      RunStep();
      FUZZ_CHECK(!expected_ && !invoked_);
      FUZZ_CHECK(queue_.empty() || is_in_flight_);  // Whoever waits, waits for somebody.
    }
    ReleaseManager();
    DeleteDeferred();
    FUZZ_CHECK(!platform_.invoker);
    for (const char* name : kNames) Drop(name);
    for (Invocation& invocation : invocations_) Release(invocation);
    for (const Request& each : requests_) FUZZ_CHECK(each.was_accepted == each.was_released);
    for (const Registration& each : registrations_) {
      FUZZ_CHECK(each.was_accepted == each.was_released);
    }
  }

 private:
  // A request that was made, and what became of it.
  struct Request {
    Script* script;
    size_t number;
    bool was_accepted = false;
    bool was_told = false;
    bool was_released = false;
    std::deque<size_t>* dropped_with = nullptr;  // At the manager's release; itself in front.
  };
  struct Registration {
    Script* script;
    bool was_accepted = false;
    bool is_registered = false;
    int running = 0;          // Invocations: they keep the slot.
    bool is_entering = true;  // As may the entry that took it over.
    bool was_released = false;
  };
  // Elsewhere somebody invoked an intent of ours, and waits for the answers.
  struct Invocation {
    TAVOReplyIntentSlot slot{};
    bool is_open = false;  // Told to the caller, who has not released it.
    bool is_gone = false;  // The platform's reply function is.
    std::vector<QJsonObject> answers;
  };

  void RunStep() {
    const uint32_t step = choices_.Below(16);
    if (step < 4) Open();
    if (step / 4 == 1) Reply();
    if (step == 8) Register();
    if (step == 9 || step == 10) Invoke();
    if (step == 11 || step == 12) Answer();
    if (step == 13 && !invocations_.empty()) Release(ChooseInvocation());
    if (step == 14) choices_.Byte() % 2 ? GetIntents() : Drop(ChooseName());
    if (step == 15) depth_ == 0 && choices_.Byte() % 2 ? DeleteDeferred() : ReleaseManager();
  }

  // The end of every callback: it may go on with the script, and throw.
  void GoOn() {
    if (depth_ < kDeepestCallback && !choices_.IsEmpty()) {
      ++depth_;
      RunStep();
      --depth_;
    }
  }
  void MaybeThrow() {
    if (choices_.Below(8) == 1) throw std::runtime_error("thrown");
  }

  // ---- Requests ----

  void Open() {
    const size_t number = requests_.size();
    Request& request = requests_.emplace_back(Request{this, number});
    TAVOOpenUriSlot slot{sizeof slot, OnDone, OnRequestReleased, &request};
    const std::string uri = std::to_string(number);
    const bool has_uri = choices_.Below(16) != 1;
    request.was_accepted = has_uri && current_;
    const ForgeResult result = !has_uri ? 2 : request.was_accepted ? 0 : 3;
    if (request.was_accepted) queue_.push_back(number);
    FUZZ_CHECK(table_.OpenUri(intents_, has_uri ? uri.c_str() : nullptr, &slot) == result);
  }

  // The service asks the platform: for the oldest, and only when nothing else is under way.
  void OnInvoke() {
    FUZZ_CHECK(!is_in_flight_ && !queue_.empty() && !expected_);
    const size_t number = queue_.front();
    const test::FakeInvocation asked = platform_.invocations.back();
    platform_.invocations.clear();
    FUZZ_CHECK(asked.name == QStringLiteral("OpenURI") && asked.options.isEmpty());
    FUZZ_CHECK((asked.parameters == QJsonObject{{QStringLiteral("uri"), QString::number(number)}}));
    is_in_flight_ = true;
    GoOn();
    if (choices_.Below(8) != 1) return;
    if (is_in_flight_ && queue_.front() == number) expected_ = {number, false};
    throw std::runtime_error("no platform");
  }

  void Reply() {
    const size_t back = choices_.Below(4) == 1 ? choices_.Below(4) : 0;
    if (back >= invokers_.size()) return;
    const QPointer<IntentsInvoker> invoker = invokers_[invokers_.size() - 1 - back];
    if (!invoker) return;
    const int code = choices_.Byte() % 4;
    std::optional<size_t> number;
    if (invoker == current_ && is_in_flight_) {
      number = queue_.front();
      expected_ = {*number, code == 0};
    }
    Q_EMIT invoker->replyReceived({}, {code, QStringLiteral("answer")});
    FUZZ_CHECK(!number || requests_[*number].was_released);
  }

  static void OnDone(void* self, bool success) {
    auto& request = *static_cast<Request*>(self);
    Script& script = *request.script;
    FUZZ_CHECK(!request.was_released && !std::exchange(request.was_told, true));
    FUZZ_CHECK(script.expected_ == std::make_pair(request.number, success));
    script.expected_.reset();
    script.queue_.pop_front();
    script.is_in_flight_ = false;
    script.GoOn();
    FUZZ_CHECK(!request.was_released);
    script.MaybeThrow();
  }

  static void OnRequestReleased(void* self) {
    auto& request = *static_cast<Request*>(self);
    FUZZ_CHECK(request.was_accepted && !std::exchange(request.was_released, true));
    FUZZ_CHECK(request.was_told == !request.dropped_with);
    if (request.dropped_with) {
      FUZZ_CHECK(request.dropped_with->front() == request.number);
      request.dropped_with->pop_front();
    }
    request.script->GoOn();
    request.script->MaybeThrow();
  }

  // ---- The service's life ----

  void GetIntents() {
    platform_.fail_intents = !current_ && choices_.Below(8) == 1;
    intents_ = top_.GetIntentManager(manager_);
    FUZZ_CHECK((intents_ == nullptr) == platform_.fail_intents);
    if (intents_ && !current_) invokers_.push_back(current_ = platform_.invoker);
    platform_.fail_intents = false;
  }

  // The handle is kept: it leads nowhere from now on. What waits is dropped, not told.
  void ReleaseManager() {
    std::deque<size_t> dropped;
    dropped.swap(queue_);
    for (const size_t number : dropped) requests_[number].dropped_with = &dropped;
    is_in_flight_ = false;
    current_ = nullptr;
    top_.Release(manager_);
    FUZZ_CHECK(dropped.empty());
  }

  // The event loop, as far as it matters: until then the invokers may still answer.
  static void DeleteDeferred() {
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
  }

  // ---- Registered intents ----

  const char* ChooseName() { return kNames[choices_.Below(std::size(kNames))]; }

  void Register() {
    Registration& registration = registrations_.emplace_back(Registration{this});
    TAVORegisterIntentSlot slot{sizeof slot, OnIntent, OnRegistrationReleased, &registration};
    const char* const name = choices_.Below(16) != 1 ? ChooseName() : nullptr;
    platform_.fail_intents = choices_.Below(8) == 1;
    registration.is_registered = name && current_ && !platform_.fail_intents;
    registration.was_accepted = registration.is_registered;
    const ForgeResult result = !name ? 2 : registration.was_accepted ? 0 : 3;
    Registration* const replaced = result == 0 ? Replace(name, &registration) : nullptr;
    FUZZ_CHECK(table_.RegisterIntent(intents_, name, &slot) == result);
    platform_.fail_intents = false;
    registration.is_entering = false;
    CheckReleased(replaced);
    if (result == 0) CheckReleased(&registration);
  }

  // The platform drops a registration.
  void Drop(const char* name) {
    Registration* const dropped = Replace(name, nullptr);
    platform_.intents.extract(QString::fromUtf8(name));
    CheckReleased(dropped);
  }

  Registration* Replace(const char* name, Registration* registration) {
    Registration* const replaced = std::exchange(registered_[name], registration);
    if (replaced) replaced->is_registered = false;
    return replaced;
  }

  static void CheckReleased(const Registration* registration) {
    if (!registration || registration->is_entering) return;
    const bool has_ended = !registration->is_registered && registration->running == 0;
    FUZZ_CHECK(registration->was_released == has_ended);
  }

  static void OnRegistrationReleased(void* self) {
    auto& registration = *static_cast<Registration*>(self);
    FUZZ_CHECK(registration.was_accepted && !std::exchange(registration.was_released, true));
    FUZZ_CHECK(!registration.is_registered && registration.running == 0);
    registration.script->GoOn();
    registration.script->MaybeThrow();
  }

  void Invoke() {
    const char* const name = ChooseName();
    Registration* const registration = registered_[name];
    if (!registration) return;
    Invocation& invocation = invocations_.emplace_back();
    invoked_ = {registration, &invocation};
    ++registration->running;
    auto handler = platform_.intents.at(QString::fromUtf8(name));
    std::shared_ptr<void> guard(&invocation, [&invocation](void*) { invocation.is_gone = true; });
    handler({{QStringLiteral("not"), QStringLiteral("passed on")}},
            [&invocation, guard = std::move(guard)](const QJsonObject& answer) {
              invocation.answers.push_back(answer);
            });
    FUZZ_CHECK(invocation.slot.size == sizeof invocation.slot);
    FUZZ_CHECK(invocation.is_gone == !invocation.is_open);
    --registration->running;
    handler = nullptr;
    CheckReleased(registration);
  }

  static void OnIntent(void* self, TAVOReplyIntentSlot* slot) {
    Script& script = *static_cast<Registration*>(self)->script;
    FUZZ_CHECK(script.invoked_ && script.invoked_->first == self);
    Invocation& invocation = *script.invoked_->second;
    script.invoked_.reset();
    invocation.slot = *slot;
    invocation.is_open = true;
    script.GoOn();
    if (script.choices_.Below(8) != 1) return;
    invocation.is_open = false;  // Whoever throws has released it.
    throw std::runtime_error("thrown");
  }

  Invocation& ChooseInvocation() {
    return invocations_[choices_.Below(static_cast<uint32_t>(invocations_.size()))];
  }

  // As often as the caller likes, also when it was released.
  void Answer() {
    if (invocations_.empty()) return;
    Invocation& invocation = ChooseInvocation();
    if (!invocation.slot.reply) return;
    const uint32_t kind = choices_.Below(8);
    const int32_t number = choices_.Byte();
    const cw::EncodableValue object(cw::EncodableMap{{"n", number}});
    const forge::Buffer bytes = (kind == 1 ? cw::EncodableValue(number) : object).Serialize();
    const size_t length = kind == 2 ? 1 : bytes.GetSize();  // A map of nothing.
    const bool is_heard = invocation.is_open && kind != 3;
    const size_t count = invocation.answers.size();
    invocation.slot.reply(kind == 3 ? nullptr : invocation.slot.context,
                          kind == 4 ? nullptr : bytes.GetData(), static_cast<unsigned>(length));
    FUZZ_CHECK(invocation.answers.size() == count + (is_heard ? 1 : 0));
    if (!is_heard) return;
    const bool is_object = kind == 0 || kind > 4;
    FUZZ_CHECK((invocation.answers.back() ==
                (is_object ? QJsonObject{{QStringLiteral("n"), number}} : QJsonObject())));
  }

  static void Release(Invocation& invocation) {
    if (!invocation.slot.release) return;
    invocation.slot.release(invocation.slot.context);
    invocation.slot.release(nullptr);
    invocation.is_open = false;
    FUZZ_CHECK(invocation.is_gone);
  }

  fuzz::Choices choices_;
  int depth_ = 0;

  // Elements stay where they are.
  std::deque<Request> requests_;
  std::deque<Registration> registrations_;
  std::deque<Invocation> invocations_;

  // The model. `expected_` is who is to be told what, now.
  std::deque<size_t> queue_;
  bool is_in_flight_ = false;  // The front of the queue.
  std::optional<std::pair<size_t, bool>> expected_;
  std::map<std::string, Registration*> registered_;
  std::optional<std::pair<void*, Invocation*>> invoked_;

  test::FakePlatform platform_;
  TAVOProcTable top_{};
  TAVOIntentManagerProcTable table_{};
  _TAVOManagerRef* manager_ = nullptr;
  _TAVOIntentManagerRef* intents_ = nullptr;
  IntentsInvoker* current_ = nullptr;  // The service's; null: it was released.
  std::vector<QPointer<IntentsInvoker>> invokers_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static int argc = 1;
  static char name[] = "fuzz", *argv[] = {name, nullptr};
  static auto* const application = new QCoreApplication(argc, argv);
  const fuzz::Limits limits;
  Script(data, size).Run();
  FUZZ_CHECK(application && limits.WereKept());
  return 0;
}
