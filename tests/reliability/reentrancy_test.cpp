// Every callback of the system does everything that the system offers: each pair in a world of its
// own, with an application object and without. Sanitizers watch, and the alarm ends a deadlock.
#include "tests/reliability/scenarios.h"

namespace {

using test::World;

class ReentrancyTest : public test::TestBase, public testing::WithParamInterface<test::Scenario> {
 protected:
  void SetUp() override {
    const QCoreApplication first(argc_, nullptr);  // It opens what stays open.
    TestBase::SetUp();
  }

  // In the callback, which the scenario calls, `action` is done.
  static void RunPair(test::Callback callback, void (World::*action)()) {
    World world;
    (world.*GetParam().prepare)();
    const int before = world.calls[callback];
    world.hooked = callback;
    world.hook = [&] {
      if (world.hook_runs <= 3) world.Do(action);  // It may have its own callback called.
    };
    world.Do(GetParam().act);
    const int calls = world.calls[callback] - before;
    EXPECT_TRUE(calls == 1 || (calls > 1 && callback >= test::kStarted)) << calls << " calls";
    EXPECT_EQ(action == &World::Throw, world.CountLines("Stray exception") > 0);
    world.CheckItWorks();
  }

  static void RunAll() {
    for (const test::Callback callback : GetParam().callbacks) {
      SCOPED_TRACE("callback " + std::to_string(callback));
      RunPair(callback, &World::Throw);
      for (const auto& scenario : test::kScenarios) {
        SCOPED_TRACE(scenario.name);
        RunPair(callback, scenario.act);
      }
    }
  }

  int argc_ = 0;
};

TEST_P(ReentrancyTest, CallbackMayDoAnything) { RunAll(); }

TEST_P(ReentrancyTest, CallbackMayDoAnythingInAnApplication) {
  const QCoreApplication app(argc_, nullptr);
  RunAll();
}

INSTANTIATE_TEST_SUITE_P(Scenarios, ReentrancyTest, testing::ValuesIn(test::kScenarios),
                         testing::PrintToStringParamName());

}  // namespace
