// The engine under Caller (kit/caller.h), which adds the types.
//
// A call has a token, which is its key here and, for a peer that knows this kit, its name on the
// wire. Calls and notifications that are made before the peer has told its features wait; so do the
// calls beyond Limits::in_flight.
//
//   made ---> waiting ---> in flight ---> ended: answer, failure of the client
//                |             |
//                +-------------+--------> ended: timeout, cancel; abandoned if it was in flight
//
// Whoever takes a call out of the table sets its outcome. Its callback runs on that thread, on the
// clock when that thread may be within Call, or through the executor of the call.
//
// Threads:   any. The mutex is held while the clock is called, but not while the client, an
//            executor, or a function of the user is called or destroyed.
// Ownership: the core shares the client and the clock, which own nothing of it.
// Errors:    an exception of a callback, and of an executor, is an error line.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "cw/encodable_value.h"
#include "flrpc/client.h"
#include "kit/call_options.h"
#include "kit/clock.h"
#include "kit/failure.h"
#include "kit/notify_hub.h"
#include "kit/peer_features.h"
#include "kit/peer_watch.h"
#include "kit/pending_call.h"
#include "kit/subscription.h"
#include "kit/timer_queue.h"

namespace tavo::kit::details {

// A value that goes out: one of the user's, which is only copied if it must be kept, or an own one.
class Argument {
 public:
  explicit Argument(const cw::EncodableValue* borrowed) : borrowed_(borrowed) {}
  explicit Argument(cw::EncodableValue&& own) : own_(std::move(own)) {}

  const cw::EncodableValue& Get() const { return borrowed_ ? *borrowed_ : own_; }
  cw::EncodableValue Take() {
    if (borrowed_) return *borrowed_;
    return std::move(own_);
  }

 private:
  const cw::EncodableValue* borrowed_ = nullptr;
  cw::EncodableValue own_;
};

class CallCore final : public std::enable_shared_from_this<CallCore> {
  struct PrivateTag {
    explicit PrivateTag() = default;
  };

 public:
  using CallPtr = std::shared_ptr<PendingCall>;

  static std::shared_ptr<CallCore> Create(std::shared_ptr<flrpc::IClient> client,
                                          std::shared_ptr<IClock> clock, const Limits& limits);

  CallCore(std::shared_ptr<flrpc::IClient> client, std::shared_ptr<IClock> clock,
           const Limits& limits, PrivateTag);

  // Destroys all callbacks and handlers uncalled.
  void Close();

  // Makes the call. Its callback is not called within. Whoever calls this holds a share of the
  // core, since the client may run code that drops the caller.
  void Start(std::string_view method, Argument params, const CallPtr& call);

  // Ends the call with kCancelled, unless it has ended.
  void Cancel(const CallPtr& call);

  // Ends the call, and destroys its callback if that was not called yet.
  void Drop(const CallPtr& call);

  bool Notify(std::string_view method, Argument value);
  Subscription OnNotify(std::string_view method, NotifyHub::Function handler);
  void OnWritable(std::function<void()> callback);
  PeerWatch& GetWatch() { return *watch_; }

 private:
  // What waits.
  struct Outgoing {
    CallPtr call;  // Null: a notification.
    std::string method;
    cw::EncodableValue params;
  };

  // Getting to know the peer.
  void Begin();
  void HandleConnected(bool is_connected);
  void ArmFeaturesTimer();
  void SetFeatures(PeerFeatures features);

  // What waits. The first four need mutex_.
  bool HasRoom() const;
  bool IsWritable() const;
  bool HasRoomInFlight() const { return calls_.size() - waiting_.size() < limits_.in_flight; }
  void NoteRoom();
  bool Enter(std::string_view method, Argument& params, const CallPtr& call);
  void SendWaiting();
  std::optional<Outgoing> TakeWaiting();

  // What goes out. MarkSending needs mutex_.
  void MarkSending(PendingCall& call, std::string_view method) const;
  void SendCall(const CallPtr& call, std::string_view method, Argument params);
  void SendRequest(const CallPtr& call, std::string_view method, const cw::EncodableValue& params);
  static bool IsSendable(std::string_view method, const cw::EncodableValue& value);
  bool PassOn(std::string_view method, const cw::EncodableValue& value);
  void SendCancel(PendingCall& call);

  // What comes in.
  void HandleResponse(uint64_t token, const flrpc::Message::Response& response);
  void HandleProgress(const cw::EncodableValue& params);
  Failure ToFailure(const PendingCall& call, const flrpc::Message::Error& error) const;
  static bool IsRefusal(const PendingCall& call, const flrpc::Message::Error& error);
  bool IsErrorOfLoss(const flrpc::Message::Error& error) const;

  // How a call ends. Abandon needs mutex_.
  bool Abandon(const PendingCall& call, Outgoing& unsent);
  void EndUnsent(const CallPtr& call, Failure failure);
  void Deliver(const CallPtr& call);
  void DeliverLater(const CallPtr& call);

  // The timers. The first five need mutex_.
  CallPtr TakeLater();
  void ArmLater();
  static void StopTime(PendingCall& call);
  void RestartTime(PendingCall& call);
  void ArmTimeout(Millis deadline);
  void RunLater();
  void HandleTimeout(uint64_t round);
  std::vector<CallPtr> TakeTimedOut(uint64_t round);

  const std::shared_ptr<flrpc::IClient> client_;
  const std::shared_ptr<IClock> clock_;
  const Limits limits_;
  const std::shared_ptr<NotifyHub> hub_;
  const std::shared_ptr<PeerWatch> watch_;
  std::atomic<bool> is_closed_{false};

  mutable std::mutex mutex_;
  // Guarded by mutex_.
  std::unordered_map<uint64_t, CallPtr> calls_;  // All that have not ended, by token.
  std::map<uint64_t, Outgoing> waiting_;         // The calls of calls_ that wait, in order.
  std::map<uint64_t, Outgoing> held_;            // The notifications that wait, in order.
  std::unordered_set<uint64_t> abandoned_;       // The tokens of the abandoned calls.
  std::optional<PeerFeatures> features_;         // Empty until the peer has told.
  uint64_t features_timer_ = 0;
  bool is_sending_ = false;  // A thread sends what waits.

  // What the clock runs next: calls that have ended within Call, a chain that needs no memory of
  // its own, and the callbacks of OnWritable if there is room.
  CallPtr first_later_;
  PendingCall* last_later_ = nullptr;
  std::vector<std::function<void()>> writable_waiters_;
  uint64_t later_timer_ = 0;

  // The timer for the first deadline of all calls. Its number here tells it from an earlier one.
  Millis timeout_at_ = Millis::max();
  uint64_t timeout_timer_ = 0;
  uint64_t timeout_round_ = 0;
};

}  // namespace tavo::kit::details
