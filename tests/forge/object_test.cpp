#include "forge/object.h"

#include "tests/support/log_capture.h"

// The kind tells types apart that are alike.
template <int kKind>
struct Thing final : forge::Object<Thing<kKind>, uintptr_t> {
  using Base = forge::Object<Thing, uintptr_t>;
  using Base::Base;
  using Base::counter_;
  using Base::Create;
  using Base::Unregister;
  ~Thing() override { EXPECT_NE(this, Base::FromRef(this->GetRef()).get()); }
};

using One = Thing<1>;
using Other = Thing<2>;
using ObjectTest = test::LogTest;

TEST_F(ObjectTest, HandleResolvesWhileItsObjectLives) {
  EXPECT_EQ(1u, One::GenerateId());  // The first id of the process.
  auto one = One::Create(nullptr);
  EXPECT_EQ(2u, one->GetId());
  EXPECT_EQ(2u, one->GetRef());
  EXPECT_EQ(one, One::FromRef(2));
  const auto other = Other::Create(nullptr);
  const auto wide = uintptr_t(0x100000002);  // On 32 bits it is the object's.
  for (const uintptr_t ref : {uintptr_t{0}, other->GetRef(), wide}) {
    EXPECT_EQ(ref == 2 ? one : nullptr, One::FromRef(ref));
  }
  one.reset();
  EXPECT_EQ(nullptr, One::FromRef(2));
  other->Unregister();  // It lives on.
  EXPECT_EQ(nullptr, Other::FromRef(other->GetRef()));
}

// After the wrap an id may be taken still: its holder keeps it.
TEST_F(ObjectTest, CounterWrapsAndNoIdIsZero) {
  One::counter_ = 0xFFFFFFFF;
  const auto first = One::Create(nullptr);
  EXPECT_EQ(1u, first->GetRef());
  One::counter_ = 0;
  EXPECT_EQ(1u, One::Create(nullptr)->GetId());
  EXPECT_EQ(first, One::FromRef(1));
}

TEST_F(ObjectTest, DispatcherRunsTasksUntilItIsReset) {
  const auto one = One::Create(forge::IDispatcher::CreateEmpty());
  one->Invoke(nullptr, 0);
  const std::string line = "EmptyDispatcher::Invoke(): no-op method invoked.";
  EXPECT_EQ("[warn] " + line, log_.TakeLine());
  one->ResetDispatcher();
  one->Invoke(nullptr, 0);
}
