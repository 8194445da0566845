// The owner of something that is registered: its end removes the registration.
//
//   kit::Subscription seen = responder->OnNotify<int64_t>("seen", [](int64_t id) { Mark(id); });
//
// Threads:   a plain value, no locking. A handler that runs on another thread while it is removed
//            ends after that.
// Ownership: whoever holds a subscription may outlive the object that made it; there is nothing to
//            be removed then.
#pragma once

#include <functional>
#include <utility>

namespace tavo::kit {

class Subscription {
 public:
  Subscription() = default;  // Of nothing.
  explicit Subscription(std::function<void()> remove) : remove_(std::move(remove)) {}
  Subscription(Subscription&& other) noexcept : remove_(std::exchange(other.remove_, nullptr)) {}
  Subscription& operator=(Subscription&& other) noexcept {
    if (this != &other) {
      End();
      remove_ = std::exchange(other.remove_, nullptr);
    }
    return *this;
  }
  ~Subscription() { End(); }

  // Removes the registration now.
  void End() noexcept {
    if (const auto remove = std::exchange(remove_, nullptr)) remove();
  }

 private:
  std::function<void()> remove_;
};

}  // namespace tavo::kit
