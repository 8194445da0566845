#include "kit/peer_watch.h"

#include <algorithm>
#include <utility>

#include "forge/fence.h"

namespace tavo::kit::details {

PeerWatch::~PeerWatch() { Stop(); }

void PeerWatch::Start(Millis interval, int misses, std::function<void()> on_silent) {
  const std::lock_guard lock(mutex_);
  ++round_;
  clock_->Cancel(std::exchange(timer_, 0));
  on_silent_.swap(on_silent);  // The earlier function is destroyed without the lock.
  interval_ = interval;
  max_misses_ = misses_left_ = std::max(1, misses);
  is_ping_open_ = false;
  if (interval > Millis::zero()) Arm(Millis::zero());
}

// The caller holds mutex_.
void PeerWatch::Arm(Millis delay) {
  timer_ = clock_->After(delay, [weak = weak_from_this(), round = round_] {
    if (const auto self = weak.lock()) self->Tick(round);
  });
}

void PeerWatch::Tick(uint64_t round) {
  const bool has_failed = client_->HasConnectionFailed();
  const bool is_connected = client_->IsConnected();
  std::function<void()> on_silent;
  bool must_ping = false;
  {
    const std::lock_guard lock(mutex_);
    if (round != round_) return;
    if (is_ping_open_) --misses_left_;
    if (has_failed || misses_left_ == 0) {
      on_silent.swap(on_silent_);
      timer_ = 0;
    } else {
      must_ping = is_connected && !is_ping_open_;
      is_ping_open_ = is_ping_open_ || must_ping;
      Arm(interval_);
    }
  }
  if (on_silent) forge::Fence("watch", on_silent);
  if (must_ping) Ping(round);
}

void PeerWatch::Ping(uint64_t round) {
  forge::Fence("ping", [this, round] {
    client_->SendRequest("$/ping", {}, [weak = weak_from_this(), round](const auto&) {
      const auto self = weak.lock();
      if (self && !self->client_->HasConnectionFailed()) self->NoteAnswer(round);
    });
  });
}

// Any answer is a sign of life, also an error.
void PeerWatch::NoteAnswer(uint64_t round) {
  const std::lock_guard lock(mutex_);
  if (round != round_) return;
  is_ping_open_ = false;
  misses_left_ = max_misses_;
}

}  // namespace tavo::kit::details
