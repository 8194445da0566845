#include "forge/signals.h"

#include <atomic>
#include <thread>

#include "src/tavo_capi.h"
#include "tests/support/test_base.h"

using Listener = forge::CppStyleListener<bool>;
using SlotListener = forge::CStyleListener<bool>;

class ListenerTest : public test::TestBase {
 protected:
  using Act = std::function<void()>;

  // It holds a reference as long as it lives, and acts in the last call.
  std::function<void(bool)> MakeFunction(const Act& act) {
    return [calls = calls_, act](bool is_last) {
      ++*calls;
      if (is_last) act();
    };
  }
  auto MakeSlot(const Act& act) {
    return forge::CreateSlot<TAVOOpenUriSlot, bool>(MakeFunction(act));
  }
  bool IsReleased() const { return calls_.use_count() == 1; }

  const std::shared_ptr<int> calls_ = std::make_shared<int>(0);
  std::unique_ptr<forge::IListener<bool>> listener_;
};

// A callback that comes back, throws, or destroys its own listener still leaves one release.
TEST_F(ListenerTest, FunctionIsReleasedOnceWhateverItDoes) {
  const Act acts[] = {
      [] {},
      [this] { listener_->InvokeOnce(true); },
      [this] { listener_.reset(); },
      [] { throw std::runtime_error("act"); },
  };
  for (size_t i = 0; i < 2 * std::size(acts); ++i) {
    const auto& act = acts[i / 2];
    const auto slot = MakeSlot(act);
    listener_ = std::make_unique<SlotListener>(slot.callback, slot.release, slot.user_data);
    if (i % 2 == 0) listener_ = std::make_unique<Listener>(MakeFunction(act));
    listener_->Invoke(false);
    EXPECT_FALSE(IsReleased());
    try {
      listener_->InvokeOnce(true);
    } catch (const std::runtime_error&) {
    }
    EXPECT_TRUE(IsReleased());
    if (listener_) listener_->Invoke(true);  // It is inert now.
    EXPECT_EQ(2, std::exchange(*calls_, 0));
  }
}

TEST_F(ListenerTest, FunctionsAndTheLastCallMayBeMissing) {
  auto slot = MakeSlot(nullptr);
  EXPECT_EQ(sizeof slot, slot.size);
  slot.callback(nullptr, false);
  slot.release(nullptr);
  SlotListener(slot.callback, nullptr, slot.user_data).InvokeOnce(false);
  EXPECT_FALSE(IsReleased());
  EXPECT_EQ(1, *calls_);
  SlotListener(nullptr, slot.release, slot.user_data).InvokeOnce(false);
  EXPECT_TRUE(IsReleased());
  Listener(nullptr).InvokeOnce(true);
}

class SignalTest : public test::TestBase {
 protected:
  using Listener = forge::CppStyleListener<int>;
  std::function<void(int)> Note(const std::string& name) {
    return [this, name](int value) { calls_ += name + std::to_string(value) + ' '; };
  }

  std::string calls_;
  forge::OwnedSignal<int> signal_;
  forge::OwnedRunOnceSignal<int> once_;
};

TEST_F(SignalTest, ListenerMaySubscribeUnsubscribeAndEmitAgain) {
  uint32_t later = 0;
  signal_.Subscribe(Note("first"));
  signal_.Subscribe([&](int value) {
    if (value != 1) return;
    signal_.Subscribe(Note("new"));
    EXPECT_TRUE(signal_.Unsubscribe(later));
    EXPECT_FALSE(signal_.Unsubscribe(later));
    signal_.Emit(2);
  });
  later = signal_.Subscribe(Note("later"));
  signal_.Emit(1);
  // The inner emission meets the new listener; the outer one meets neither it nor the dead one.
  EXPECT_EQ("first1 first2 new2 ", calls_);
}

TEST_F(SignalTest, CallbackMayThrowAndMayDestroyItsSignal) {
  auto signal = std::make_unique<forge::OwnedSignal<int>>();
  const auto probe = std::make_shared<int>();
  signal->Subscribe([&, probe, called = false](int value) mutable {
    EXPECT_FALSE(std::exchange(called, true));  // Each call is made on a copy of the callback.
    if (value == 1) throw std::runtime_error("act");
    if (value == 2) signal.reset();
    EXPECT_LT(1, probe.use_count());
  });
  signal->Subscribe(Note("later"));
  EXPECT_THROW(signal->Emit(1), std::runtime_error);
  signal->Emit(0);
  signal->Emit(2);
  EXPECT_EQ(1, probe.use_count());
  EXPECT_EQ("later0 ", calls_);
}

TEST_F(SignalTest, ThreadsMaySubscribeWhileOthersEmit) {
  std::atomic<int> calls{0};
  std::thread emitter([this] {
    for (int i = 0; i < 1000; ++i) signal_.Emit(i);
  });
  for (int i = 0; i < 1000; ++i) {
    EXPECT_TRUE(signal_.Unsubscribe(signal_.Subscribe([&](int) { ++calls; })));
  }
  emitter.join();
  const int before = calls;
  signal_.Emit(0);
  EXPECT_EQ(before, calls);
}

TEST_F(SignalTest, RunOnceSignalKeepsItsFirstEmission) {
  const auto attached = std::make_shared<Listener>(Note("attached"));
  once_.Attach(attached);
  once_.Attach(std::make_shared<Listener>(Note("dead")));
  once_.Subscribe(Note("first"));
  EXPECT_TRUE(once_.Unsubscribe(once_.Subscribe(Note("gone"))));
  once_.Subscribe([&](int) {
    once_.Emit(9);
    once_.Subscribe(Note("inner"));
  });
  once_.Emit(1);
  EXPECT_FALSE(once_.Unsubscribe(once_.Subscribe(Note("late"))));
  const auto late = std::make_shared<Listener>(Note("late"));
  once_.Attach(late);
  EXPECT_EQ("first1 inner1 attached1 late1 late1 ", calls_);
}
