#include "forge/object.h"

#include <vector>

#include "tests/support/log_capture.h"
#include "tests/support/test_base.h"
#include "tests/support/thing.h"

namespace {

using test::RunAtOnce;
using test::Thing;
using test::ThingRef;

struct OtherRef;

class Other final : public forge::Object<Other, OtherRef*> {
  struct PrivateTag {
    explicit PrivateTag() = default;
  };

 public:
  explicit Other(PrivateTag) : Object(nullptr) {}
  static std::shared_ptr<Other> Create() { return Object::Create(PrivateTag{}); }
};

struct Counter : forge::details::CounterClient {
  static void Set(uint32_t value) { counter_ = value; }
  using CounterClient::DrawId;
};

class ObjectTest : public test::TestBase {};

TEST_F(ObjectTest, FirstIdOfTheProcessIsOneAndTheNextIsTwo) {
  EXPECT_EQ(1u, forge::details::CounterClient::GenerateId());
  EXPECT_EQ(2u, Thing::Create()->GetId());
}

TEST_F(ObjectTest, HandleResolvesWhileItsObjectLives) {
  auto thing = Thing::Create();
  ThingRef* ref = thing->GetRef();
  EXPECT_EQ(reinterpret_cast<ThingRef*>(uintptr_t{thing->GetId()}), ref);
  EXPECT_EQ(thing, Thing::FromRef(ref));
  const auto other = Other::Create();
  EXPECT_EQ(nullptr, Thing::FromRef(nullptr));
  EXPECT_EQ(nullptr, Thing::FromRef(reinterpret_cast<ThingRef*>(other->GetRef())));
  EXPECT_EQ(nullptr, Thing::FromRef(reinterpret_cast<ThingRef*>(uintptr_t{0xFFFFFFF0u})));
  if constexpr (sizeof(void*) > sizeof(uint32_t)) {
    const auto wide = (uint64_t{1} << 32) + thing->GetId();  // No handle ever had such a value.
    EXPECT_EQ(nullptr, Thing::FromRef(reinterpret_cast<ThingRef*>(static_cast<uintptr_t>(wide))));
  }
  thing.reset();
  EXPECT_FALSE(Thing::found_while_dying);
  EXPECT_EQ(nullptr, Thing::FromRef(ref));
}

TEST_F(ObjectTest, UnregisteredObjectLivesOnWithoutItsHandle) {
  const auto thing = Thing::Create();
  thing->Unregister();
  EXPECT_EQ(nullptr, Thing::FromRef(thing->GetRef()));
}

TEST_F(ObjectTest, CounterWrapsAndNoIdIsZero) {
  Counter::Set(0xFFFFFFFFu);
  EXPECT_EQ(0u, forge::details::CounterClient::GenerateId());
  Counter::Set(0xFFFFFFFFu);
  EXPECT_EQ(1u, Counter::DrawId());
}

// After the wrap an id may be taken still: its holder keeps it, alive and dead.
TEST_F(ObjectTest, ObjectWhoseIdIsTakenErasesNoEntryButItsOwn) {
  Counter::Set(99);
  const auto first = Thing::Create();
  Counter::Set(99);
  auto second = Thing::Create();
  ASSERT_EQ(first->GetId(), second->GetId());
  EXPECT_EQ(first, Thing::FromRef(second->GetRef()));
  second.reset();
  EXPECT_EQ(first, Thing::FromRef(first->GetRef()));
}

TEST_F(ObjectTest, TaskMayResetTheDispatcherThatRunsIt) {
  const auto dispatcher = std::make_shared<RunAtOnce>();
  const auto thing = Thing::Create(dispatcher);
  int runs = 0;
  const auto task = [&] {
    ++runs;
    thing->ResetDispatcher();
  };
  thing->Invoke(task, 5);
  thing->Invoke(task, 6);  // No dispatcher is left.
  EXPECT_EQ(1, runs);
  EXPECT_EQ(5u, dispatcher->last_flags);
}

TEST_F(ObjectTest, EmptyDispatcherDropsTasksWithAWarningEach) {
  test::LogCapture log;
  const auto empty = forge::IDispatcher::CreateEmpty();
  EXPECT_NE(empty, forge::IDispatcher::CreateEmpty());
  const auto thing = Thing::Create(empty);
  for (int i = 0; i < 2; ++i) thing->Invoke([] { FAIL() << "The task ran."; }, 0);
  const std::string warning = "[warn] EmptyDispatcher::Invoke(): no-op method invoked.";
  EXPECT_EQ((std::vector<std::string>{warning, warning}), log.TakeLines());
}

}  // namespace
