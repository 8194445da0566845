// Every allocation of every scenario fails once, and from there on for ever: nothing crashes, no
// exception leaves a C function, nothing is lost or leaked, and what failed can be done again.
#include <optional>

#include "cw/binary_messenger.h"
#include "cw/embedder_slot.h"
#include "tests/reliability/world.h"
#include "tests/support/failing_new.h"

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

// What an embedder with nothing but a messenger is given.
struct Embedder {
  FlutterOstrelMessageCallback handler;
  void* user_data;
  int answers;
  size_t answer_size;
} embedder;

uint32_t LoadMessenger(FlutterOstrelMessengerProcTable* table, uint32_t, _FlutterOstrelEngine*) {
  table->SetMessageHandler = [](auto*, auto*, auto handler, void* user_data) {
    embedder = {handler, user_data, 0, 0};
  };
  return 1;
}

void TakeAnswer(_FlutterOstrelEngine*, _FlutterOstrelResponse*, const uint8_t*, size_t size) {
  ++embedder.answers;
  embedder.answer_size = size;
}

// The answer and the result come in any case, if need be with less.
TEST_F(AllocationTest, MessageIsAnsweredOnceAndWindowHasOneResult) {
  FlutterOstrelPluginContext context{};
  context.size = sizeof context;
  context.engine = reinterpret_cast<_FlutterOstrelEngine*>(&context);
  context.MessengerProcTableLoad = LoadMessenger;
  FailEach([&context](long n, bool for_ever) {
    constexpr uint8_t kBytes[] = {7, 1, 'a'};
    const auto messenger = cw::BinaryMessenger::Create(&context);
    messenger->SetMessageHandler("channel",
                                 [](auto* bytes, auto size, auto answer) { answer(bytes, size); });
    int results = 0;
    const auto slot = cw::details::CreateResultSlot([&](auto&, auto) { ++results; });
    auto failing = std::make_optional<FailingNew>(n, for_ever);
    embedder.handler(context.engine, "channel", kBytes, sizeof kBytes, TakeAnswer, nullptr,
                     embedder.user_data);
    slot->callback(slot->user_data, kBytes, sizeof kBytes, World::kText);
    const bool has_failed = failing->HasFailed();
    failing.reset();
    slot->release(slot->user_data);
    EXPECT_EQ(1, embedder.answers);
    EXPECT_EQ(1, results);
    EXPECT_TRUE(has_failed || embedder.answer_size == sizeof kBytes);
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
      const FailingNew failing(n, for_ever);
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
