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
  // With memory that ends at the n-th allocation. Returns whether there was one.
  bool RunOnce(World& world, long n, bool for_ever) {
    const Scenario& scenario = GetParam();
    scenario.prepare(world);
    const auto before = world.GetCalls();
    bool has_failed = false;
    bool has_thrown = false;
    {
      const FailingNew failing(n, for_ever, !(scenario.traits & test::kConnects));
      try {
        scenario.act(world);
      } catch (const std::bad_alloc&) {
        has_thrown = true;
      }
      has_failed = failing.HasFailed();
    }
    const bool is_done = world.is_done && !has_thrown;
    const bool is_told = world.WereCalled(scenario.callbacks, before);
    EXPECT_TRUE(!has_thrown || scenario.traits & test::kMayThrow);
    EXPECT_TRUE(is_done || (has_failed && !(scenario.traits & test::kIsSure)));
    EXPECT_TRUE(is_told || (has_failed && !(scenario.traits & test::kIsTold)));
    if (!(is_done && is_told) && !(scenario.traits & (test::kIsSure | test::kIsFinal))) {
      scenario.act(world);
      EXPECT_TRUE(world.is_done && world.WereCalled(scenario.callbacks, before));
    }
    world.CheckItWorks();
    return has_failed;
  }

  test::LogCapture log_;
  int argc_ = 0;
  QCoreApplication app_{argc_, nullptr};
};

TEST_P(AllocationTest, MayFail) {
  // A first run makes what stays for good.
  constexpr long kNever = 1L << 30;
  RunOnce(*std::make_unique<World>(log_), kNever, false);
  for (const bool for_ever : {false, true}) {
    bool has_failed = true;
    for (long n = 1; has_failed && !HasFailure(); ++n) {
      const auto text = "allocation " + std::to_string(n) + (for_ever ? " and later" : "");
      SCOPED_TRACE(text);
      const long live = FailingNew::CountLive();
      has_failed = RunOnce(*std::make_unique<World>(log_), n, for_ever);
      EXPECT_EQ(live, FailingNew::CountLive()) << "blocks";
    }
  }
}

std::string GetName(const testing::TestParamInfo<Scenario>& scenario) {
  return scenario.param.name;
}

INSTANTIATE_TEST_SUITE_P(Scenarios, AllocationTest, testing::ValuesIn(test::kScenarios), GetName);

// ---- Plug-ins ----

// A plug-in over an embedder that is played, whose own allocations succeed.
struct Plugin {
  Plugin() {
    using Context = FlutterOstrelPluginContext;
    using View = FlutterOstrelViewProcTable;
    using Messenger = FlutterOstrelMessengerProcTable;
    Spare<&Context::ApplicationProcTableLoad, &Context::ViewProcTableLoad,
          &Context::MessengerProcTableLoad, &Context::TextureProcTableLoad,
          &Context::EngineDestroyedSubscribe>(embedder.context);
    Spare<&View::LockResources, &View::UnlockResources, &View::GetWindowPayload,
          &View::CreatePopupWindow>(embedder.view);
    Spare<&Messenger::Send, &Messenger::SetMessageHandler>(embedder.messenger);
    embedder.answers = {{"GetWindowPayload", 0}};
    const forge::Buffer bytes = value.Serialize();
    embedder.payload.assign(bytes.GetData(), bytes.GetData() + bytes.GetSize());
    Load();
  }
  ~Plugin() {
    const auto entries = embedder.TakeCalls();
    EXPECT_EQ(std::count(entries.begin(), entries.end(), "LockResources"),
              std::count(entries.begin(), entries.end(), "UnlockResources"));
    SetHandler();
    EXPECT_TRUE(Deliver());
    EndEngine();
    embedder.ReleaseSlot();
  }

  template <auto... kEntries, typename Table>
  static void Spare(Table& table) {
    (SpareOne<kEntries>(table), ...);
  }
  template <auto kEntry, typename Table>
  static void SpareOne(Table& table) {
    static const auto entry = table.*kEntry;  // Each embedder's is the same.
    table.*kEntry = [](auto... arguments) {
      const FailingNew::Pause pause;
      return entry(arguments...);
    };
  }

  bool Load() {
    registrar = cw::PluginRegistrarManager::GetInstance()->GetRegistrarImpl(embedder.GetContext());
    return registrar != nullptr;
  }
  void EndEngine() { embedder.engine_destroyed(embedder.context.engine); }

  void SetHandler() {
    registrar->GetMessenger()->SetMessageHandler(
        "channel", [](const uint8_t* data, size_t size, const auto& reply) { reply(data, size); });
  }
  // The embedder wants one answer in any case. Is it the whole one?
  bool Deliver() {
    answers.clear();
    embedder.message_callback(embedder.context.engine, "channel", embedder.payload.data(),
                              embedder.payload.size(), TakeAnswer,
                              reinterpret_cast<_FlutterOstrelResponse*>(this), embedder.user_data);
    EXPECT_EQ(1u, answers.size());
    return !answers.empty() && answers.front() == embedder.payload.size();
  }
  static void TakeAnswer(_FlutterOstrelEngine*, _FlutterOstrelResponse* response, const uint8_t*,
                         size_t size) {
    const FailingNew::Pause pause;
    reinterpret_cast<Plugin*>(response)->answers.push_back(size);
  }

  auto Count() {
    return [this](auto&&...) { ++calls; };
  }

  test::FakeEmbedder embedder;
  cw::PluginRegistrar* registrar = nullptr;
  const cw::EncodableValue value{std::string(World::kLongText)};
  std::vector<size_t> answers;  // To the last message, by their sizes.
  int calls = 0;
};

void Load(World& w) { w.guest = std::make_shared<Plugin>(); }
Plugin& Of(World& w) { return *static_cast<Plugin*>(w.guest.get()); }

// What a plug-in calls is C++, which may throw.
const Scenario kPluginScenarios[] = {
    {"Registrar", test::kMayThrow, test::Calls(),
     [](World& w) {
       Load(w);
       Of(w).EndEngine();
     },
     [](World& w) { w.is_done = Of(w).Load(); }},
    {"ChannelMessage", test::kPlain, test::Calls(),
     [](World& w) {
       Load(w);
       Of(w).SetHandler();
     },
     [](World& w) { w.is_done = Of(w).Deliver(); }},
    {"ChannelSend", test::kMayThrow, test::Calls(), Load,
     [](World& w) {
       const auto& bytes = Of(w).embedder.payload;
       Of(w).registrar->GetMessenger()->Send("channel", bytes.data(), bytes.size(), Of(w).Count());
       Of(w).embedder.reply_callback(bytes.data(), bytes.size(), Of(w).embedder.user_data);
       w.is_done = Of(w).calls > 0;
     }},
    {"WindowPayload", test::kPlain, test::Calls(), Load,
     [](World& w) { w.is_done = Of(w).registrar->GetView()->GetWindowPayload() == Of(w).value; }},
    {"PopupWindow", test::kMayThrow, test::Calls(), Load,
     [](World& w) {
       Plugin& p = Of(w);
       p.registrar->GetView()->CreatePopupWindow("entry", "", &p.value, p.Count());
       p.calls = 0;
       p.embedder.Call(p.embedder.payload, World::kLongText);
       EXPECT_EQ(1, p.calls);  // The answer comes in any case, if need be with less.
       p.embedder.ReleaseSlot();
     }},
};

INSTANTIATE_TEST_SUITE_P(Plugins, AllocationTest, testing::ValuesIn(kPluginScenarios), GetName);

// ---- The process's first call ----

// What could not be made is not tried again, unless the error line failed, too.
void StartService(long n, bool for_ever, bool* has_failed) {
  test::LogCapture log;
  TAVOProcTable top{};
  TAVOProcTableLoad(&top, sizeof top);
  _TAVOManagerRef* manager = nullptr;
  {
    const FailingNew failing(n, for_ever, true);
    manager = top.Initialize();
    *has_failed = failing.HasFailed();
  }
  EXPECT_EQ(*has_failed, !manager);
  _TAVOManagerRef* const again = top.Initialize();
  EXPECT_TRUE(manager == again || (!manager && for_ever));
  if (again) World(log).CheckItWorks();
  log.TakeText();
}

class FirstAllocationTest : public test::TestBase {};

TEST_F(FirstAllocationTest, MayFail) {
  enum { kHasFailed, kHasNotFailed, kBroken };
  for (const bool for_ever : {false, true}) {
    int status = kHasFailed;
    for (long n = 1; WEXITSTATUS(status) == kHasFailed; ++n) {
      const pid_t child = fork();
      if (child == 0) {
        bool has_failed = false;
        StartService(n, for_ever, &has_failed);
        _exit(HasFailure() ? kBroken : has_failed ? kHasFailed : kHasNotFailed);
      }
      ASSERT_EQ(child, waitpid(child, &status, 0));
      ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) < kBroken) << n;
    }
  }
}

}  // namespace
