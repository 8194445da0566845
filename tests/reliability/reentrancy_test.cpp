// Every callback of the system does everything that the system offers: each pair in a world of its
// own, with an application object and without. Sanitizers watch, and the alarm ends a deadlock.
#include <stdexcept>

#include "tests/reliability/scenarios.h"

namespace {

using test::Scenario;
using test::World;

void Throw(World&) { throw std::runtime_error("unhappy"); }

class ReentrancyTest : public test::TestBase, public testing::WithParamInterface<Scenario> {
 protected:
  // In the callback, that scenario calls, `action` is done.
  void RunPair(const Scenario& scenario, test::Callback callback, void (*action)(World&)) {
    World world(log_);
    scenario.prepare(world);
    const int before = world.calls[callback];
    world.hooked = callback;
    world.hook = [&] { action(world); };
    scenario.act(world);
    world.Settle();
    const int calls = world.calls[callback] - before;
    EXPECT_TRUE(calls == 1 || (calls > 1 && callback >= test::kMayComeAgain)) << calls << " calls";
    EXPECT_EQ(action == Throw, world.CountLines("Stray exception") > 0);
    world.CheckItWorks();
  }

  void RunAll(const Scenario& scenario, test::Callback callback) {
    for (const Scenario& action : test::kScenarios) {
      SCOPED_TRACE(action.name);
      RunPair(scenario, callback, action.act);
    }
    SCOPED_TRACE("throw");
    RunPair(scenario, callback, Throw);
  }

  void SetUp() override {
    MakeApplication();  // The first one opens what stays open.
    TestBase::SetUp();
  }

  static std::unique_ptr<QCoreApplication> MakeApplication() {
    static int argc = 0;
    return std::make_unique<QCoreApplication>(argc, nullptr);
  }

  test::LogCapture log_;
};

TEST_P(ReentrancyTest, CallbackMayDoAnything) {
  for (const bool has_application : {true, false}) {
    const auto app = has_application ? MakeApplication() : nullptr;
    for (int callback = 0; callback < test::kCallbacks; ++callback) {
      SCOPED_TRACE("callback " + std::to_string(callback) + (app ? "" : ", without application"));
      if (GetParam().callbacks >> callback & 1) {
        RunAll(GetParam(), static_cast<test::Callback>(callback));
      }
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Scenarios, ReentrancyTest, testing::ValuesIn(test::kScenarios),
                         [](const auto& scenario) { return std::string(scenario.param.name); });

}  // namespace
