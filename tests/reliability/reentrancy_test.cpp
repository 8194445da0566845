// Every callback of the system does everything that the system offers: each pair in a world of its
// own, with an application object and without. Sanitizers watch, and the alarm ends a deadlock.
#include "tests/reliability/world.h"

namespace {

using test::World;

class ReentrancyTest : public test::TestBase, public testing::WithParamInterface<test::Scenario> {
 protected:
  void SetUp() override {
    const QCoreApplication first(argc_, nullptr);  // It opens what stays open.
    TestBase::SetUp();
  }

  // In the n-th callback, and in those that come with it, `action` is done.
  static void RunPair(int n, void (World::*action)()) {
    World world;
    (world.*GetParam().prepare)();
    world.calls = 0;
    world.hooked = n;
    world.hook = [&] { world.Do(action); };
    world.Do(GetParam().act);
    EXPECT_LT(world.hook_runs, 3);
    EXPECT_EQ(action == &World::Throw,
              world.TakeText().find("Stray exception") != std::string::npos);
    world.CheckItWorks();
  }

  static void RunAll() {
    for (int n = 1; n <= GetParam().calls; ++n) {
      SCOPED_TRACE("callback " + std::to_string(n));
      RunPair(n, &World::Throw);
      for (const auto& scenario : test::kScenarios) {
        SCOPED_TRACE(scenario.name);
        RunPair(n, scenario.act);
      }
    }
  }

  int argc_ = 0;
};

TEST_P(ReentrancyTest, CallbackMayDoAnything) {
  RunAll();
  const QCoreApplication app(argc_, nullptr);  // Qt objects are deleted later from now on.
  RunAll();
}

INSTANTIATE_TEST_SUITE_P(Scenarios, ReentrancyTest, testing::ValuesIn(test::kScenarios),
                         testing::PrintToStringParamName());

}  // namespace
