#include "forge/signals.h"

#include <stdexcept>
#include <string>
#include <vector>

#include "src/tavo_capi.h"
#include "tests/support/test_base.h"

namespace {

struct SlotCounts {
  int calls = 0;
  int releases = 0;
};

void CountCall(void* counts, int) { ++static_cast<SlotCounts*>(counts)->calls; }
void CountRelease(void* counts) { ++static_cast<SlotCounts*>(counts)->releases; }

class ListenerTest : public test::TestBase {};

TEST_F(ListenerTest, CSlotIsReleasedExactlyOnce) {
  SlotCounts counts;
  {
    forge::CStyleListener<int> listener(CountCall, CountRelease, &counts);
    listener.Invoke(1);
    listener.Invoke(2);
    EXPECT_EQ(0, counts.releases);
    listener.InvokeOnce(3);
    EXPECT_EQ(1, counts.releases);
    listener.InvokeOnce(4);
    listener.Invoke(5);
  }
  EXPECT_EQ(3, counts.calls);
  EXPECT_EQ(1, counts.releases);

  { forge::CStyleListener<int> dropped(CountCall, CountRelease, &counts); }
  EXPECT_EQ(3, counts.calls);
  EXPECT_EQ(2, counts.releases);

  forge::CStyleListener<int> without_call(nullptr, CountRelease, &counts);
  without_call.Invoke(1);
  without_call.InvokeOnce(1);
  EXPECT_EQ(3, counts.releases);

  forge::CStyleListener<int> empty(nullptr, nullptr, nullptr);
  empty.InvokeOnce(1);
}

// A callback that comes back, throws, or destroys its own listener still leaves one release.
TEST_F(ListenerTest, CSlotIsReleasedOnceWhateverTheCallbackDoes) {
  struct Slot {
    int mode;
    SlotCounts counts;
    std::unique_ptr<forge::CStyleListener<int>> listener;
  };
  for (const int mode : {0, 1, 2}) {
    Slot slot{mode, {}, nullptr};
    slot.listener = std::make_unique<forge::CStyleListener<int>>(
        [](void* data, int) {
          auto* self = static_cast<Slot*>(data);
          ++self->counts.calls;
          if (self->mode == 0) self->listener->InvokeOnce(0);
          if (self->mode == 1) throw std::runtime_error("from the callback");
          if (self->mode == 2) self->listener.reset();
        },
        [](void* data) { ++static_cast<Slot*>(data)->counts.releases; }, &slot);
    if (mode == 1) {
      EXPECT_THROW(slot.listener->InvokeOnce(0), std::runtime_error);
    } else {
      slot.listener->InvokeOnce(0);
    }
    slot.listener.reset();
    EXPECT_EQ(1, slot.counts.calls) << mode;
    EXPECT_EQ(1, slot.counts.releases) << mode;
  }
}

TEST_F(ListenerTest, FunctionListenerDropsItsCallbackAfterTheLastCall) {
  const auto probe = std::make_shared<int>(0);
  forge::CppStyleListener<int> listener([probe](int value) { *probe += value; });
  listener.Invoke(1);
  listener.Invoke(2);
  EXPECT_EQ(2, probe.use_count());
  listener.InvokeOnce(4);
  EXPECT_EQ(1, probe.use_count());
  listener.InvokeOnce(8);
  EXPECT_EQ(7, *probe);
  forge::CppStyleListener<int>(nullptr).InvokeOnce(1);  // An empty one is skipped.
}

TEST_F(ListenerTest, SlotMadeOfAFunctionCallsAndFreesIt) {
  const auto probe = std::make_shared<bool>(false);
  auto slot = forge::CreateSlot<TAVOOpenUriSlot, bool>([probe](bool value) { *probe = value; });
  EXPECT_EQ(sizeof(TAVOOpenUriSlot), slot.size);
  slot.callback(nullptr, true);
  slot.release(nullptr);
  EXPECT_FALSE(*probe);
  slot.callback(slot.user_data, true);
  EXPECT_TRUE(*probe);
  slot.release(slot.user_data);
  EXPECT_EQ(1, probe.use_count());

  auto empty = forge::CreateSlot<TAVOOpenUriSlot, bool>(std::function<void(bool)>());
  EXPECT_THROW(empty.callback(empty.user_data, true), std::bad_function_call);
  empty.release(empty.user_data);
}

class SignalTest : public test::TestBase {
 protected:
  std::vector<std::string> calls_;
  std::function<void(int)> Note(const std::string& name) {
    return [this, name](int value) { calls_.push_back(name + std::to_string(value)); };
  }
  using Calls = std::vector<std::string>;
};

TEST_F(SignalTest, CallsInTheOrderOfSubscriptionAndAgain) {
  forge::OwnedSignal<int> signal;
  const uint32_t a = signal.Subscribe(Note("a"));
  const uint32_t b = signal.Subscribe(Note("b"));
  EXPECT_NE(a, b);
  signal.Emit(1);
  EXPECT_TRUE(signal.Unsubscribe(a));
  EXPECT_FALSE(signal.Unsubscribe(a));
  signal.Emit(2);
  EXPECT_EQ((Calls{"a1", "b1", "b2"}), calls_);
}

TEST_F(SignalTest, ListenerMaySubscribeUnsubscribeAndEmitAgain) {
  forge::OwnedSignal<int> signal;
  uint32_t later = 0;
  signal.Subscribe([&](int value) {
    calls_.push_back("first" + std::to_string(value));
    if (value == 1) {
      signal.Subscribe(Note("new"));
      signal.Unsubscribe(later);
      signal.Emit(2);
    }
  });
  later = signal.Subscribe(Note("later"));
  signal.Emit(1);
  // The inner emission meets the new listener; the outer one meets neither it nor the dead one.
  EXPECT_EQ((Calls{"first1", "first2", "new2"}), calls_);
}

TEST_F(SignalTest, ExceptionLeavesTheEmission) {
  forge::OwnedSignal<int> signal;
  signal.Subscribe([](int) { throw std::runtime_error("from a listener"); });
  signal.Subscribe(Note("after"));
  EXPECT_THROW(signal.Emit(1), std::runtime_error);
  EXPECT_EQ(Calls{}, calls_);
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

  calls_.clear();
  const uint32_t late = signal.Subscribe(Note("late"));
  EXPECT_FALSE(signal.Unsubscribe(late));
  const auto late_attached = std::make_shared<forge::CppStyleListener<int>>(Note("late attached"));
  signal.Attach(late_attached);
  EXPECT_EQ((Calls{"late1", "late attached1"}), calls_);
}

TEST_F(SignalTest, RunOnceSignalStaysEmittedWhenAListenerThrows) {
  forge::OwnedRunOnceSignal<> signal;
  signal.Subscribe([] { throw std::runtime_error("from a listener"); });
  signal.Subscribe([this] { calls_.push_back("after"); });
  EXPECT_THROW(signal.Emit(), std::runtime_error);
  signal.Emit();
  EXPECT_EQ(Calls{}, calls_);
}

}  // namespace
