#include "forge/signals.h"

#include <stdexcept>
#include <string>
#include <vector>

#include "src/tavo_capi.h"
#include "tests/support/test_base.h"

namespace {

using Calls = std::vector<std::string>;

struct Slot {
  std::unique_ptr<forge::CStyleListener<int>> listener;
  void (*act)(Slot& self) = [](Slot&) {};
  int calls = 0;
  int releases = 0;
};

void Call(void* data, int) {
  auto& slot = *static_cast<Slot*>(data);
  ++slot.calls;
  slot.act(slot);
}
void Release(void* data) { ++static_cast<Slot*>(data)->releases; }

class ListenerTest : public test::TestBase {};

// A callback that comes back, throws, or destroys its own listener still leaves one release.
TEST_F(ListenerTest, CSlotIsReleasedOnceWhateverTheCallbackDoes) {
  const struct {
    void (*call)(void*, int);
    void (*release)(void*);
    void (*act)(Slot&);
  } rows[] = {
      {Call, Release, [](Slot&) {}},
      {nullptr, Release, [](Slot&) {}},
      {Call, nullptr, [](Slot&) {}},
      {Call, Release, [](Slot& self) { self.listener->InvokeOnce(0); }},
      {Call, Release, [](Slot&) { throw std::runtime_error("from the callback"); }},
      {Call, Release, [](Slot& self) { self.listener.reset(); }},
  };
  for (const auto& row : rows) {
    for (const bool is_called_last : {true, false}) {
      SCOPED_TRACE(testing::Message() << &row - rows << is_called_last);
      Slot slot;
      slot.listener = std::make_unique<forge::CStyleListener<int>>(row.call, row.release, &slot);
      slot.listener->Invoke(1);
      EXPECT_EQ(0, slot.releases);
      slot.act = row.act;
      try {
        if (is_called_last) slot.listener->InvokeOnce(2);
      } catch (const std::runtime_error&) {
      }
      EXPECT_EQ(row.release && is_called_last, slot.releases);
      if (slot.listener && is_called_last) slot.listener->Invoke(3);  // It is inert now.
      slot.listener.reset();
      EXPECT_EQ(row.call ? 1 + is_called_last : 0, slot.calls);
      EXPECT_EQ(row.release ? 1 : 0, slot.releases);
    }
  }
}

TEST_F(ListenerTest, FunctionIsDroppedAfterTheLastCall) {
  const auto sum = std::make_shared<int>(0);
  forge::CppStyleListener<int> listener([sum](int value) { *sum += value; });
  listener.Invoke(1);
  listener.Invoke(2);
  EXPECT_EQ(2, sum.use_count());
  listener.InvokeOnce(4);
  EXPECT_EQ(1, sum.use_count());
  listener.InvokeOnce(8);
  EXPECT_EQ(7, *sum);
  forge::CppStyleListener<int>(nullptr).InvokeOnce(1);  // An empty one is skipped.

  auto slot = forge::CreateSlot<TAVOOpenUriSlot, bool>([sum](bool value) { *sum = value; });
  EXPECT_EQ(sizeof(TAVOOpenUriSlot), slot.size);
  slot.callback(nullptr, true);
  slot.release(nullptr);
  EXPECT_EQ(7, *sum);
  slot.callback(slot.user_data, true);
  EXPECT_EQ(1, *sum);
  slot.release(slot.user_data);
  EXPECT_EQ(1, sum.use_count());
  slot = forge::CreateSlot<TAVOOpenUriSlot, bool>(std::function<void(bool)>());
  EXPECT_THROW(slot.callback(slot.user_data, true), std::bad_function_call);
  slot.release(slot.user_data);
}

class SignalTest : public test::TestBase {
 protected:
  std::function<void(int)> Note(const std::string& name) {
    return [this, name](int value) { calls_.push_back(name + std::to_string(value)); };
  }

  Calls calls_;
};

TEST_F(SignalTest, ListenerMaySubscribeUnsubscribeAndEmitAgain) {
  forge::OwnedSignal<int> signal;
  uint32_t later = 0;
  const uint32_t first = signal.Subscribe([&](int value) {
    calls_.push_back("first" + std::to_string(value));
    if (value != 1) return;
    signal.Subscribe(Note("new"));
    EXPECT_TRUE(signal.Unsubscribe(later));
    EXPECT_FALSE(signal.Unsubscribe(later));
    signal.Emit(2);
  });
  later = signal.Subscribe(Note("later"));
  EXPECT_NE(first, later);
  signal.Emit(1);
  // The inner emission meets the new listener; the outer one meets neither it nor the dead one.
  EXPECT_EQ((Calls{"first1", "first2", "new2"}), calls_);
}

TEST_F(SignalTest, RunOnceSignalKeepsItsFirstEmission) {
  forge::OwnedRunOnceSignal<int> signal;
  const auto attached = std::make_shared<forge::CppStyleListener<int>>(Note("attached"));
  signal.Attach(attached);
  signal.Attach(std::make_shared<forge::CppStyleListener<int>>(Note("dead")));
  signal.Subscribe(Note("a"));
  EXPECT_TRUE(signal.Unsubscribe(signal.Subscribe(Note("gone"))));
  signal.Subscribe([&](int value) {
    calls_.push_back("b" + std::to_string(value));
    signal.Emit(9);
    signal.Subscribe(Note("inner"));
  });
  signal.Emit(1);
  signal.Emit(2);
  EXPECT_EQ((Calls{"a1", "b1", "inner1", "attached1"}), calls_);
  EXPECT_FALSE(signal.Unsubscribe(signal.Subscribe(Note("late"))));
  const auto late = std::make_shared<forge::CppStyleListener<int>>(Note("late attached"));
  signal.Attach(late);
  EXPECT_EQ((Calls{"a1", "b1", "inner1", "attached1", "late1", "late attached1"}), calls_);
}

// Whoever comes behind it is not called, and a signal that runs once has run.
TEST_F(SignalTest, ExceptionLeavesTheEmission) {
  forge::OwnedSignal<int> signal;
  forge::OwnedRunOnceSignal<int> run_once;
  const auto fail = [](int) { throw std::runtime_error("from a listener"); };
  signal.Subscribe(fail);
  signal.Subscribe(Note("after"));
  EXPECT_THROW(signal.Emit(1), std::runtime_error);
  run_once.Subscribe(fail);
  run_once.Subscribe(Note("after"));
  EXPECT_THROW(run_once.Emit(1), std::runtime_error);
  run_once.Emit(2);
  EXPECT_EQ(Calls{}, calls_);
}

}  // namespace
