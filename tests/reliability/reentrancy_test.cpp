// Every callback of the system does everything that the system offers: each pair in a world of its
// own. Sanitizers watch, and the alarm ends a deadlock.
#include "tests/reliability/world.h"

namespace {

using test::World;

class ReentrancyTest : public test::TestBase, public testing::WithParamInterface<test::Scenario> {
 protected:
  // In the n-th callback, and in those that come with it, `action` is done.
  static void RunPair(int n, void (World::*action)()) {
    World world;
    (world.*GetParam().prepare)();
    world.calls = 0;
    world.hooked = n;
    world.hook = [&] { world.Do(action); };
    world.Do(GetParam().act);
    EXPECT_LT(world.hook_runs, 3);
    const bool is_stray = world.TakeText().find("Stray exception") != std::string::npos;
    EXPECT_EQ(action == &World::Throw, is_stray);
    world.CheckItWorks();
  }

  int argc_ = 0;
  QCoreApplication app_{argc_, nullptr};
};

TEST_P(ReentrancyTest, CallbackMayDoAnything) {
  for (int n = 1; n <= GetParam().calls; ++n) {
    SCOPED_TRACE("callback " + std::to_string(n));
    RunPair(n, &World::Throw);
    for (const auto& scenario : test::kScenarios) {
      SCOPED_TRACE(scenario.name);
      RunPair(n, scenario.act);
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Scenarios, ReentrancyTest, testing::ValuesIn(test::kScenarios),
                         testing::PrintToStringParamName());

}  // namespace
