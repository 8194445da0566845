// Every allocation of every scenario fails once, and from there on for ever: nothing crashes, no
// exception leaves a C function, nothing is lost or leaked, and what failed can be done again.
#include <sys/wait.h>
#include <unistd.h>

#include "cw/plugin_registrar.h"
#include "tests/reliability/scenarios.h"
#include "tests/support/failing_new.h"
#include "tests/support/fake_embedder.h"

namespace {

using test::FailingNew;
using test::World;

class AllocationTest : public test::TestBase, public testing::WithParamInterface<test::Scenario> {
 protected:
  // Calls run(n, for_ever), which tells whether there was an n-th allocation, until there is none.
  template <typename Run>
  void FailEach(const Run& run) {
    run(LONG_MAX, false);  // Makes what stays for good.
    for (const bool for_ever : {false, true}) {
      bool has_failed = true;
      for (long n = 1; has_failed && !HasFailure(); ++n) {
        SCOPED_TRACE("allocation " + std::to_string(n) + (for_ever ? " and later" : ""));
        const long live = FailingNew::CountLive();
        has_failed = run(n, for_ever);
        log_.TakeText();
        EXPECT_EQ(live, FailingNew::CountLive()) << "blocks";
      }
    }
  }

  test::LogCapture log_;
  int argc_ = 0;
  QCoreApplication app_{argc_, nullptr};
};

// What could not be made is not tried again, unless the error line failed, too.
bool StartService(long n, bool for_ever) {
  TAVOProcTable top{};
  TAVOProcTableLoad(&top, sizeof top);
  const FailingNew failing(n, for_ever, true);
  _TAVOManagerRef* const manager = top.Initialize();
  EXPECT_EQ(failing.HasFailed(), !manager);
  const FailingNew succeeding;
  _TAVOManagerRef* const again = top.Initialize();
  EXPECT_TRUE(manager == again || (!manager && for_ever));
  if (again) World().CheckItWorks();
  return failing.HasFailed();
}

TEST_F(AllocationTest, OfTheProcesssFirstCallMayFail) {
  FailEach([](long n, bool for_ever) {
    enum { kHasFailed, kHasNotFailed, kBroken };
    const pid_t child = fork();
    if (child == 0) {
      const bool has_failed = StartService(n, for_ever);
      _exit(HasFailure() ? kBroken : has_failed ? kHasFailed : kHasNotFailed);
    }
    int status = 0;
    EXPECT_EQ(child, waitpid(child, &status, 0));
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) < kBroken);
    return WEXITSTATUS(status) == kHasFailed;
  });
}

// A plug-in over an embedder that is played, whose own allocations succeed.
struct Plugin : test::FakeEmbedder {
  Plugin() {
#define BEGIN(name) \
  {                 \
    auto& table = name;
#define FIELD(index, field, type)
#define ENTRY(index, field, ...) Spare<&TABLE::field>(table);
#define END(count) }
#include "platform/flutter_ostrel/embedder_entries.inc"
    answers = {{"GetWindowPayload", 0}};
    const forge::Buffer bytes = value.Serialize();
    payload.assign(bytes.GetData(), bytes.GetData() + bytes.GetSize());
    Load();
  }
  ~Plugin() {
    const auto entries = TakeCalls();
    EXPECT_EQ(std::count(entries.begin(), entries.end(), "LockResources"),
              std::count(entries.begin(), entries.end(), "UnlockResources"));
    EXPECT_TRUE(Deliver());
    engine_destroyed(context.engine);
  }
  template <auto kEntry, typename Table>
  static void Spare(Table& table) {
    static const auto entry = table.*kEntry;  // Each embedder's is the same.
    table.*kEntry = [](auto... arguments) {
      const FailingNew pause;
      return entry(arguments...);
    };
  }
  auto Count() {
    return [this](auto&&...) { ++calls; };
  }

  bool Load() {
    if (engine_destroyed) engine_destroyed(context.engine);
    registrar = cw::PluginRegistrarManager::GetInstance()->GetRegistrarImpl(GetContext());
    if (!registrar) return false;
    registrar->GetMessenger()->SetMessageHandler(
        "channel", [](const uint8_t* data, size_t size, const auto& reply) { reply(data, size); });
    handler_data = user_data;
    return true;
  }
  // The embedder wants one answer in any case. Is it the whole one?
  bool Deliver() {
    calls = 0;
    const auto response = reinterpret_cast<_FlutterOstrelResponse*>(this);
    message_callback(context.engine, "channel", payload.data(), payload.size(), TakeAnswer,
                     response, handler_data);
    EXPECT_EQ(1, calls);
    return answer_size == payload.size();
  }
  static void TakeAnswer(_FlutterOstrelEngine*, _FlutterOstrelResponse* response, const uint8_t*,
                         size_t size) {
    const auto plugin = reinterpret_cast<Plugin*>(response);
    ++plugin->calls;
    plugin->answer_size = size;
  }
  bool Send() {
    calls = 0;
    registrar->GetMessenger()->Send("channel", payload.data(), payload.size(), Count());
    reply_callback(payload.data(), payload.size(), user_data);
    return calls == 1;
  }
  bool GetPayload() { return registrar->GetView()->GetWindowPayload() == value; }
  bool CreatePopup() {
    registrar->GetView()->CreatePopupWindow("entry", "", &value, Count());
    calls = 0;
    Call(payload, World::kText);  // It is answered in any case, if need be with less.
    ReleaseSlot();
    return calls == 1;
  }

  cw::PluginRegistrar* registrar = nullptr;
  void* handler_data = nullptr;
  const cw::EncodableValue value{std::string(World::kText)};
  size_t answer_size = 0;
  int calls = 0;
};

TEST_F(AllocationTest, OfAPluginMayFail) {
  const struct {
    bool (Plugin::*act)();
    bool may_throw;  // What a plug-in calls is C++.
    bool is_sure;
  } kSteps[] = {{&Plugin::Load, true, false},
                {&Plugin::Deliver, false, false},
                {&Plugin::Send, true, false},
                {&Plugin::GetPayload, false, false},
                {&Plugin::CreatePopup, true, true}};
  for (const auto& step : kSteps) {
    SCOPED_TRACE(&step - kSteps);
    FailEach([&step](long n, bool for_ever) {
      Plugin plugin;
      bool is_done = false;
      bool has_failed = true;
      try {
        const FailingNew failing(n, for_ever, true);
        is_done = (plugin.*step.act)();
        has_failed = failing.HasFailed();
        EXPECT_TRUE(is_done || (has_failed && !step.is_sure));
      } catch (const std::bad_alloc&) {
        EXPECT_TRUE(step.may_throw);
      }
      EXPECT_TRUE(is_done || (plugin.*step.act)());
      return has_failed;
    });
  }
}

TEST_P(AllocationTest, MayFail) {
  FailEach([&scenario = GetParam()](long n, bool for_ever) {
    World world;
    (world.*scenario.prepare)();
    const auto before = world.GetCalls();
    bool has_failed = true;
    try {
      const FailingNew failing(n, for_ever, !(scenario.traits & test::kConnects));
      world.Do(scenario.act);
      has_failed = failing.HasFailed();
    } catch (const std::bad_alloc&) {
      EXPECT_TRUE(scenario.traits & test::kMayThrow);
      world.is_done = false;
    }
    const bool is_told = world.WereCalled(scenario.callbacks, before);
    EXPECT_TRUE(world.is_done || (has_failed && !(scenario.traits & test::kIsSure)));
    EXPECT_TRUE(is_told || (has_failed && !(scenario.traits & test::kIsTold)));
    const bool is_over = scenario.traits & (test::kIsSure | test::kIsFinal);
    if (!(world.is_done && is_told) && !is_over) {
      world.Do(scenario.act);
      EXPECT_TRUE(world.is_done && world.WereCalled(scenario.callbacks, before));
    }
    world.CheckItWorks();
    return has_failed;
  });
}

INSTANTIATE_TEST_SUITE_P(Scenarios, AllocationTest, testing::ValuesIn(test::kScenarios),
                         testing::PrintToStringParamName());

}  // namespace
