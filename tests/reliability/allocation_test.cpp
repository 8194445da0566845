// Every allocation of every scenario fails once, and from there on for ever: nothing crashes, no
// exception leaves a C function, nothing is lost or leaked, and what failed can be done again.
#include <sys/wait.h>
#include <unistd.h>

#include "cw/plugin_registrar.h"
#include "tests/reliability/world.h"
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

// What could not be made is not tried again, unless the error line failed, too. Returns 1 if an
// allocation failed, and 2 if the test did.
int StartService(long n, bool for_ever) {
  TAVOProcTable top{};
  TAVOProcTableLoad(&top, sizeof top);
  const FailingNew failing(n, for_ever, true);
  _TAVOManagerRef* const manager = top.Initialize();
  EXPECT_EQ(failing.HasFailed(), !manager);
  const FailingNew succeeding;
  _TAVOManagerRef* const again = top.Initialize();
  EXPECT_TRUE(manager == again || (!manager && for_ever));
  if (again) World().CheckItWorks();
  return testing::Test::HasFailure() ? 2 : failing.HasFailed();
}

TEST_F(AllocationTest, FirstCallOfTheProcessMayFail) {
  FailEach([](long n, bool for_ever) {
    const pid_t child = fork();
    if (child == 0) _exit(StartService(n, for_ever));
    int status = 0;
    EXPECT_EQ(child, waitpid(child, &status, 0));
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) <= 1);
    return WEXITSTATUS(status) == 1;
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
  }
  ~Plugin() {
    const auto entries = TakeCalls();
    EXPECT_EQ(std::count(entries.begin(), entries.end(), "LockResources"),
              std::count(entries.begin(), entries.end(), "UnlockResources"));
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

  // Each thing once. What the plug-in calls is C++, which may throw; the embedder calls C.
  void Use() {
    may_throw = true;
    if (engine_destroyed) engine_destroyed(context.engine);
    auto& plugins = *cw::PluginRegistrarManager::GetInstance();
    auto& registrar = *plugins.GetRegistrarImpl(GetContext());
    auto& channels = *registrar.GetMessenger();
    channels.SetMessageHandler(
        "channel", [](const auto* bytes, size_t size, const auto& answer) { answer(bytes, size); });

    // The embedder wants one answer in any case.
    calls = 0;
    may_throw = false;
    const auto response = reinterpret_cast<_FlutterOstrelResponse*>(this);
    message_callback(context.engine, "channel", payload.data(), payload.size(), TakeAnswer,
                     response, user_data);
    EXPECT_EQ(1, calls);
    is_done = answer_size == payload.size();
    is_done &= registrar.GetView()->GetWindowPayload() == value;

    may_throw = true;
    channels.Send("channel", payload.data(), payload.size(), Count());
    reply_callback(payload.data(), payload.size(), user_data);
    is_done &= calls == 2;
    registrar.GetView()->CreatePopupWindow("entry", "", &value, Count());
    calls = 0;
    Call(payload, World::kText);
    EXPECT_EQ(1, calls);  // The answer comes in any case, if need be with less.
    ReleaseSlot();
  }
  static void TakeAnswer(_FlutterOstrelEngine*, _FlutterOstrelResponse* response, const uint8_t*,
                         size_t size) {
    const auto plugin = reinterpret_cast<Plugin*>(response);
    ++plugin->calls;
    plugin->answer_size = size;
  }

  const cw::EncodableValue value{std::string(World::kText)};
  size_t answer_size = 0;
  int calls = 0;
  bool may_throw = true;
  bool is_done = false;
};

TEST_F(AllocationTest, UseOfAPluginMayFail) {
  FailEach([](long n, bool for_ever) {
    Plugin plugin;
    bool has_failed = true;
    try {
      const FailingNew failing(n, for_ever, true);
      plugin.Use();
      has_failed = failing.HasFailed();
      EXPECT_TRUE(has_failed || plugin.is_done);
    } catch (const std::bad_alloc&) {
      EXPECT_TRUE(plugin.may_throw);
    }
    plugin.Use();
    EXPECT_TRUE(plugin.is_done);
    return has_failed;
  });
}

TEST_P(AllocationTest, MayFail) {
  FailEach([&scenario = GetParam()](long n, bool for_ever) {
    const auto is = [traits = scenario.traits](unsigned trait) { return (traits & trait) != 0; };
    World world;
    (world.*scenario.prepare)();
    world.calls = 0;
    bool has_failed = true;
    try {
      const FailingNew failing(n, for_ever, !is(test::kConnects));
      world.Do(scenario.act);
      has_failed = failing.HasFailed();
    } catch (const std::bad_alloc&) {
      EXPECT_TRUE(is(test::kMayThrow));
      world.is_done = false;
    }
    const bool is_told = world.calls == scenario.calls;
    EXPECT_TRUE(world.is_done || (has_failed && !is(test::kIsSure)));
    EXPECT_TRUE(is_told || (has_failed && !is(test::kIsTold))) << world.calls;
    if (!(world.is_done && is_told) && !is(test::kIsSure | test::kIsFinal)) {
      world.Do(scenario.act);
      EXPECT_TRUE(world.is_done && world.calls >= scenario.calls);
    }
    world.CheckItWorks();
    return has_failed;
  });
}

INSTANTIATE_TEST_SUITE_P(Scenarios, AllocationTest, testing::ValuesIn(test::kScenarios),
                         testing::PrintToStringParamName());

}  // namespace
