// A watch over a peer: it asks from time to time, and tells when no answer comes.
//
// Threads:   any. No lock is held while the client is called or the function runs, which it does
//            where the clock runs its tasks.
// Ownership: the watch shares its client and its clock. Its end, and Stop, drop the function.
// Errors:    an exception of the function, or of the client, is an error line.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>

#include "flrpc/client.h"
#include "kit/clock.h"

namespace tavo::kit::details {

class PeerWatch : public std::enable_shared_from_this<PeerWatch> {
 public:
  PeerWatch(std::shared_ptr<flrpc::IClient> client, std::shared_ptr<IClock> clock)
      : client_(std::move(client)), clock_(std::move(clock)) {}
  ~PeerWatch();
  PeerWatch(const PeerWatch&) = delete;
  PeerWatch& operator=(const PeerWatch&) = delete;

  // Sends a ping now and each interval, once the client is connected. One ping is on its way at a
  // time. Calls the function once, and ends then, when a ping was not answered at the end of this
  // many intervals, or when the connection is lost. An earlier watch is dropped; an interval of
  // zero or less only does that.
  void Start(Millis interval, int misses, std::function<void()> on_silent);

  // Ends the watch.
  void Stop() { Start(Millis::zero(), 0, {}); }

 private:
  void Tick(uint64_t round);
  void Ping(uint64_t round);
  void NoteAnswer(uint64_t round);
  void Arm(Millis delay);

  const std::shared_ptr<flrpc::IClient> client_;
  const std::shared_ptr<IClock> clock_;

  std::mutex mutex_;
  // Guarded by mutex_.
  uint64_t round_ = 0;  // The number of the watch. What belongs to an earlier one does nothing.
  uint64_t timer_ = 0;
  Millis interval_{0};
  int misses_left_ = 0;
  int max_misses_ = 0;
  bool is_ping_open_ = false;
  std::function<void()> on_silent_;
};

}  // namespace tavo::kit::details
