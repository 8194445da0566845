// The message pump of client and server: it sends outgoing messages and dispatches incoming ones.
// It holds both back, in their order, until its owner enables the queue.
//
// Threads: any. The queue's recursive lock is held while queued messages are delivered, so messages
//          are delivered in order and one at a time; a handler may send and receive again. A caller
//          must not hold a lock of its own both around a call here and inside a handler.
// Errors:  an exception of a handler or of the send function leaves the call that delivered. If
//          several messages were delivered, the others are delivered first, and the first exception
//          leaves. Unknown notifications and unhandled messages are logged.
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

// The limits of what a peer can make this process hold before the queue is enabled. A few bytes on
// the wire may be a large message in memory, so both the number and the memory are limited.
constexpr size_t kMaxHeldMessages = 1024;
constexpr size_t kMaxHeldBytes = size_t{16} << 20;

class Receiver {
 public:
  using SendFunction = std::function<void(Message&&)>;
  using Handler = std::function<bool(const Message&)>;  // True: handled.
  using UnsentFunction = std::function<void(const Message::ID&)>;
  using NotifyHandler = std::function<void(const Message::Notification&)>;

  // Each function may be empty. `unsent` is called for each request that had waited in the queue
  // when the send function throws. For a request that did not wait, the exception reaches its
  // sender.
  Receiver(SendFunction&& send, Handler&& handler, UnsentFunction&& unsent = {});
  Receiver(const Receiver&) = delete;
  Receiver& operator=(const Receiver&) = delete;

  // Sends or dispatches a message at once, without the queue.
  void SendImmediately(Message&& message);
  void ReceiveImmediately(const Message& message);

  // Sends or dispatches a message through the queue. Until the queue is enabled, received messages
  // are held within the limits above; the others are dropped with an error line.
  void Send(Message&& message);
  void Receive(Message&& message);

  // A notification that the peer would refuse is dropped with an error line.
  void SendNotification(std::string_view method, const cw::EncodableValue& params);

  // Enables the queue for ever and delivers the messages that wait.
  void SetQueueEnabled();

  // For a queue that will never be enabled: drops the messages that wait and all later ones.
  void Close();

  // Delivers the messages that wait, if the queue is enabled.
  void ProcessQueue();

  // Adds a handler; several handlers of one method are all called.
  void OnNotify(std::string_view method, NotifyHandler&& handler);

 private:
  enum class Kind { kReceive = 0, kSend = 1 };
  using Queue = std::list<std::pair<Kind, Message>>;
  using NotifySignal = forge::OwnedSignal<Message::Notification>;

  void Append(Kind kind, Message&& message);
  void Hold(Kind kind, Message&& message);
  void DeliverOne(Kind kind, Message&& message);
  void DeliverHeld(Kind kind, Message&& message);
  void Deliver(Queue& queue);
  void Emit(const Message::Notification& notification) const;

  const SendFunction send_;
  const Handler handler_;
  const UnsentFunction unsent_;

  mutable std::shared_mutex notify_mutex_;
  std::unordered_map<std::string, std::shared_ptr<NotifySignal>>
      notify_signals_;  // Guarded by notify_mutex_.

  // The only lock that is held while handlers and the send function run.
  std::recursive_mutex queue_mutex_;
  Queue queue_;                 // Guarded by queue_mutex_.
  size_t held_ = 0;             // Guarded by queue_mutex_. Received messages that wait.
  size_t held_bytes_ = 0;       // Guarded by queue_mutex_. The memory of those messages.
  bool queue_enabled_ = false;  // Guarded by queue_mutex_.
  bool closed_ = false;         // Guarded by queue_mutex_.
};

// Enables the queue and then calls `tell`, also when a message that waited throws.
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

// A place for one message and the way of its delivery.
class MessageSlot {
 public:
  // A second message is refused with an error line.
  void Fill(bool immediately, Message&& message);

 protected:
  std::optional<std::pair<bool, Message>> slot_;  // True: immediately.
};

// Sends a message in its destructor. An owner that decides under its own lock which message is sent
// declares the guard before the lock, so the lock is released first.
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

// The same for a received message.
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
