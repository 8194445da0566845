// Every allocation of every scenario fails once, and from there on for ever: nothing crashes, no
// exception leaves a C function, nothing is lost or leaked, and what failed can be done again.
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <new>

#include "cw/plugin_registrar.h"
#include "tests/reliability/scenarios.h"
#include "tests/support/failing_new.h"
#include "tests/support/fake_embedder.h"

namespace {

using test::FailingNew;
using test::Scenario;
using test::World;

class AllocationTest : public test::TestBase, public testing::WithParamInterface<Scenario> {
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

// ---- The process's first call ----

// What could not be made is not tried again, unless the error line failed, too.
bool StartService(long n, bool for_ever) {
  TAVOProcTable top{};
  TAVOProcTableLoad(&top, sizeof top);
  FailingNew failing(n, for_ever, true);
  _TAVOManagerRef* const manager = top.Initialize();
  EXPECT_EQ(failing.HasFailed(), !manager);
  const FailingNew succeeding;
  _TAVOManagerRef* const again = top.Initialize();
  EXPECT_TRUE(manager == again || (!manager && for_ever));
  if (again) World().CheckItWorks();
  return failing.HasFailed();
}

TEST_F(AllocationTest, OfTheFirstCallMayFail) {
  FailEach([](long n, bool for_ever) {
    enum { kHasFailed, kHasNotFailed, kBroken };
    const pid_t child = fork();
    if (child == 0) {
      const bool has_failed = StartService(n, for_ever);
      _exit(testing::Test::HasFailure() ? kBroken : has_failed ? kHasFailed : kHasNotFailed);
    }
    int status = 0;
    EXPECT_EQ(child, waitpid(child, &status, 0));
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) < kBroken);
    return WEXITSTATUS(status) == kHasFailed;
  });
}

// ---- Plug-ins ----

// A plug-in over an embedder that is played, whose own allocations succeed.
struct Plugin {
  Plugin() {
#define BEGIN(name) \
  {                 \
    auto& table = embedder.name;
#define FIELD(index, field, type)
#define ENTRY(index, field, ...) Spare<&TABLE::field>(table);
#define END(count) }
#include "platform/flutter_ostrel/embedder_entries.inc"
    embedder.answers = {{"GetWindowPayload", 0}};
    const forge::Buffer bytes = value.Serialize();
    embedder.payload.assign(bytes.GetData(), bytes.GetData() + bytes.GetSize());
    Load();
  }
  ~Plugin() {
    const auto entries = embedder.TakeCalls();
    EXPECT_EQ(std::count(entries.begin(), entries.end(), "LockResources"),
              std::count(entries.begin(), entries.end(), "UnlockResources"));
    embedder.engine_destroyed(embedder.context.engine);
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
    registrar = cw::PluginRegistrarManager::GetInstance()->GetRegistrarImpl(embedder.GetContext());
    if (!registrar) return false;
    registrar->GetMessenger()->SetMessageHandler(
        "channel", [](const uint8_t* data, size_t size, const auto& reply) { reply(data, size); });
    handler_data = embedder.user_data;
    return true;
  }
  bool LoadAgain() {
    embedder.engine_destroyed(embedder.context.engine);
    return Load();
  }
  // The embedder wants one answer in any case. Is it the whole one?
  bool Deliver() {
    calls = 0;
    const auto response = reinterpret_cast<_FlutterOstrelResponse*>(this);
    embedder.message_callback(embedder.context.engine, "channel", embedder.payload.data(),
                              embedder.payload.size(), TakeAnswer, response, handler_data);
    EXPECT_EQ(1, calls);
    return answer_size == embedder.payload.size();
  }
  static void TakeAnswer(_FlutterOstrelEngine*, _FlutterOstrelResponse* response, const uint8_t*,
                         size_t size) {
    auto& plugin = *reinterpret_cast<Plugin*>(response);
    ++plugin.calls;
    plugin.answer_size = size;
  }
  bool Send() {
    calls = 0;
    const auto& bytes = embedder.payload;
    registrar->GetMessenger()->Send("channel", bytes.data(), bytes.size(), Count());
    embedder.reply_callback(bytes.data(), bytes.size(), embedder.user_data);
    return calls == 1;
  }
  bool GetPayload() { return registrar->GetView()->GetWindowPayload() == value; }
  bool CreatePopup() {
    registrar->GetView()->CreatePopupWindow("entry", "", &value, Count());
    calls = 0;
    embedder.Call(embedder.payload, World::kText);
    EXPECT_EQ(1, calls);  // The answer comes in any case, if need be with less.
    embedder.ReleaseSlot();
    return true;
  }

  test::FakeEmbedder embedder;
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
  } kSteps[] = {{&Plugin::LoadAgain, true},
                {&Plugin::Deliver, false},
                {&Plugin::Send, true},
                {&Plugin::GetPayload, false},
                {&Plugin::CreatePopup, true}};
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
      } catch (const std::bad_alloc&) {
        EXPECT_TRUE(step.may_throw);
      }
      EXPECT_TRUE(is_done || (has_failed && (plugin.*step.act)()));
      EXPECT_TRUE(plugin.Deliver());
      return has_failed;
    });
  }
}

// ---- The system ----

TEST_P(AllocationTest, MayFail) {
  const Scenario& scenario = GetParam();
  const auto run = [&scenario](long n, bool for_ever) {
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
    if (!(world.is_done && is_told) && !(scenario.traits & (test::kIsSure | test::kIsFinal))) {
      world.Do(scenario.act);
      EXPECT_TRUE(world.is_done && world.WereCalled(scenario.callbacks, before));
    }
    world.CheckItWorks();
    return has_failed;
  };
  FailEach(run);
}

INSTANTIATE_TEST_SUITE_P(Scenarios, AllocationTest, testing::ValuesIn(test::kScenarios),
                         testing::PrintToStringParamName());

}  // namespace
