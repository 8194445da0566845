#include "forge/object.h"

#include <vector>

#include "tests/support/log_capture.h"
#include "tests/support/test_base.h"

namespace {

// The kind tells types apart that are alike.
template <int kKind>
class Thing final : public forge::Object<Thing<kKind>, void*> {
 public:
  using Base = forge::Object<Thing, void*>;
  explicit Thing(const std::shared_ptr<forge::IDispatcher>& dispatcher) : Base(dispatcher) {}
  ~Thing() override { found_while_dying = Base::FromRef(Base::GetRef()) != nullptr; }

  static std::shared_ptr<Thing> Create(
      const std::shared_ptr<forge::IDispatcher>& dispatcher = nullptr) {
    return Base::Create(dispatcher);
  }
  static void SetCounter(uint32_t value) { Base::counter_ = value; }
  using Base::DrawId;
  using Base::Unregister;

  static inline bool found_while_dying = false;
};

using One = Thing<1>;
using Other = Thing<2>;

void* RefOf(uint64_t value) { return reinterpret_cast<void*>(static_cast<uintptr_t>(value)); }

struct RunAtOnce final : forge::IDispatcher {
  void Invoke(const std::function<void()>& task, uint32_t flags) override {
    last_flags = flags;
    task();
  }
  uint32_t last_flags = 0;
};

class ObjectTest : public test::TestBase {};

TEST_F(ObjectTest, HandleResolvesWhileItsObjectLives) {
  EXPECT_EQ(1u, One::GenerateId());  // The first id of the process.
  auto one = One::Create();
  void* const ref = one->GetRef();
  EXPECT_EQ(2u, one->GetId());
  EXPECT_EQ(RefOf(2), ref);
  EXPECT_EQ(one, One::FromRef(ref));
  const auto other = Other::Create();
  // The last, wider than an id, is another one's on 32 bits.
  for (void* const wrong : {RefOf(0), other->GetRef(), RefOf(0xFFFFFFF0), RefOf(0x100000000 + 2)}) {
    EXPECT_EQ(wrong == ref ? one : nullptr, One::FromRef(wrong));
  }
  one.reset();
  EXPECT_FALSE(One::found_while_dying);
  EXPECT_EQ(nullptr, One::FromRef(ref));
  other->Unregister();  // It lives on.
  EXPECT_EQ(nullptr, Other::FromRef(other->GetRef()));
}

TEST_F(ObjectTest, CounterWrapsAndNoIdIsZero) {
  One::SetCounter(0xFFFFFFFFu);
  EXPECT_EQ(0u, One::GenerateId());
  One::SetCounter(0xFFFFFFFFu);
  EXPECT_EQ(1u, One::DrawId());
}

// After the wrap an id may be taken still: its holder keeps it, alive and dead.
TEST_F(ObjectTest, ObjectWhoseIdIsTakenErasesNoEntryButItsOwn) {
  One::SetCounter(99);
  const auto first = One::Create();
  One::SetCounter(99);
  auto second = One::Create();
  ASSERT_EQ(first->GetId(), second->GetId());
  EXPECT_EQ(first, One::FromRef(second->GetRef()));
  second.reset();
  EXPECT_EQ(first, One::FromRef(first->GetRef()));
}

TEST_F(ObjectTest, DispatcherMayBeResetWhileItRunsATaskAndTheEmptyOneWarns) {
  const auto dispatcher = std::make_shared<RunAtOnce>();
  const auto one = One::Create(dispatcher);
  int runs = 0;
  const auto task = [&] {
    ++runs;
    one->ResetDispatcher();
  };
  one->Invoke(task, 5);
  one->Invoke(task, 6);  // No dispatcher is left.
  EXPECT_EQ(5u, dispatcher->last_flags);

  test::LogCapture log;
  const auto empty = forge::IDispatcher::CreateEmpty();
  EXPECT_NE(empty, forge::IDispatcher::CreateEmpty());
  Other::Create(empty)->Invoke(task, 0);
  EXPECT_EQ("[warn] EmptyDispatcher::Invoke(): no-op method invoked.", log.TakeLine());
  EXPECT_EQ(1, runs);
}

}  // namespace
