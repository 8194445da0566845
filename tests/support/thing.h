// An object with a handle, and a dispatcher that runs its tasks at once.
#pragma once

#include <atomic>
#include <functional>
#include <memory>

#include "forge/object.h"

namespace test {

struct ThingRef;

class Thing final : public forge::Object<Thing, ThingRef*> {
  struct PrivateTag {
    explicit PrivateTag() = default;
  };

 public:
  Thing(const std::shared_ptr<forge::IDispatcher>& dispatcher, PrivateTag) : Object(dispatcher) {}
  ~Thing() override { found_while_dying = FromRef(GetRef()) != nullptr; }

  static std::shared_ptr<Thing> Create(
      const std::shared_ptr<forge::IDispatcher>& dispatcher = nullptr) {
    return Object::Create(dispatcher, PrivateTag{});
  }
  using Object::Unregister;

  static inline std::atomic<bool> found_while_dying = false;
};

class RunAtOnce final : public forge::IDispatcher {
 public:
  void Invoke(const std::function<void()>& task, uint32_t flags) override {
    ++runs;
    last_flags = flags;
    task();
  }

  std::atomic<int> runs{0};
  std::atomic<uint32_t> last_flags{0};
};

}  // namespace test
