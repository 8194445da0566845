// The message pump that client and server share: sends what goes out, dispatches what comes in, and
// holds both back, in their order, until its owner enables the queue.
//
// Threads: any. The queue's recursive lock is held while queued messages are delivered, so delivery
//          is in order and one at a time; a handler may send and receive again. No caller may hold
//          a lock of its own both around a call here and inside a handler.
// Errors:  an exception of a handler or of the send function leaves the call that delivered; of
//          several messages the rest is delivered first, and the first exception leaves. Unknown
//          notifications and unhandled messages are logged.
#pragma once

#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <shared_mutex>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "flrpc/message.h"
#include "forge/signals.h"

namespace flrpc::details {

// What a peer can make us hold before the queue is enabled: a few bytes on the wire may be a large
// message in memory, so both are bounded. Whichever limit comes first counts.
constexpr size_t kMostHeldMessages = 1024;
constexpr size_t kMostHeldBytes = size_t{16} << 20;

class Receiver {
 public:
  using SendFunction = std::function<void(Message&&)>;
  using Handler = std::function<bool(const Message&)>;  // True: handled.
  using NotifyHandler = std::function<void(const Message::Notification&)>;

  // Either may be empty.
  Receiver(SendFunction&& send, Handler&& handler);
  Receiver(const Receiver&) = delete;
  Receiver& operator=(const Receiver&) = delete;

  // Past the queue.
  void SendImmediately(Message&& message);
  void ReceiveImmediately(const Message& message);

  // Through the queue. Until it is enabled, received ones are held within the limits above; the
  // others are dropped with an error line.
  void Send(Message&& message);
  void Receive(Message&& message);

  // One that the peer would not take is dropped with an error line.
  void SendNotification(std::string_view method, const cw::EncodableValue& params);

  // Once and for all; delivers what waits.
  void SetQueueEnabled();

  // The queue will never be enabled: drops what waits, and whatever else would have to.
  void Close();

  // Delivers what is queued, if the queue is enabled.
  void ProcessQueue();

  // Several handlers of one method are all called.
  void OnNotify(std::string_view method, NotifyHandler&& handler);

 private:
  enum class Kind { kReceive = 0, kSend = 1 };
  using Queue = std::list<std::pair<Kind, Message>>;
  using NotifySignal = forge::OwnedSignal<Message::Notification>;

  void Append(Kind kind, Message&& message);
  void Hold(Kind kind, Message&& message);
  void DeliverOne(Kind kind, Message&& message);
  void Deliver(Queue& queue);
  void Emit(const Message::Notification& notification) const;

  const SendFunction send_;
  const Handler handler_;

  mutable std::shared_mutex notify_mutex_;
  std::unordered_map<std::string, std::shared_ptr<NotifySignal>>
      notify_signals_;  // By notify_mutex_.

  // The one lock that is held while foreign code runs.
  std::recursive_mutex queue_mutex_;
  Queue queue_;            // Guarded by queue_mutex_, as all that follows.
  size_t held_ = 0;        // Received messages in the queue while it is not enabled,
  size_t held_bytes_ = 0;  // and the memory that they take.
  bool queue_enabled_ = false;
  bool closed_ = false;
};

// Enables the queue and tells of it, also when what waited throws.
template <typename Tell>
void OpenQueue(Receiver& receiver, Tell&& tell) {
  try {
    receiver.SetQueueEnabled();
  } catch (...) {
    tell();
    throw;
  }
  tell();
}

// Room for one message and how it is to be delivered.
class MessageSlot {
 public:
  // A second message is refused with an error line.
  void Fill(bool immediately, Message&& message);

 protected:
  std::optional<std::pair<bool, Message>> slot_;  // Immediately?
};

// Sends a message when it ends: for those who decide under a lock of their own what is sent, and
// let go of the lock first.
class SendGuard : private MessageSlot {
 public:
  explicit SendGuard(Receiver& receiver) : receiver_(receiver) {}
  ~SendGuard() noexcept(false);
  SendGuard(const SendGuard&) = delete;
  SendGuard& operator=(const SendGuard&) = delete;

  void Send(Message&& message) { Fill(false, std::move(message)); }
  void SendImmediately(Message&& message) { Fill(true, std::move(message)); }

 private:
  Receiver& receiver_;
};

// The same for what was received.
class ReceiveGuard : private MessageSlot {
 public:
  explicit ReceiveGuard(Receiver& receiver) : receiver_(receiver) {}
  ~ReceiveGuard() noexcept(false);
  ReceiveGuard(const ReceiveGuard&) = delete;
  ReceiveGuard& operator=(const ReceiveGuard&) = delete;

  void Receive(Message&& message) { Fill(false, std::move(message)); }
  void ReceiveImmediately(Message&& message) { Fill(true, std::move(message)); }
  void ReceiveImmediately(const Message& message) { Fill(true, Message(message)); }

 private:
  Receiver& receiver_;
};

}  // namespace flrpc::details
