#include "flrpc/receiver.h"

#include "forge/logger.h"

namespace flrpc::details {

Receiver::Receiver(SendFunction&& send, Handler&& handler)
    : send_(std::move(send)), handler_(std::move(handler)) {}

void Receiver::SendImmediately(Message&& message) {
  if (send_) send_(std::move(message));
}

void Receiver::ReceiveImmediately(const Message& message) {
  if (handler_ && handler_(message)) return;
  if (const auto* notification = message.GetNotification()) return Emit(*notification);
  FORGE_LOG(kWarn) << "[RPC Receiver]: unhandled message";
}

void Receiver::Emit(const Message::Notification& notification) const {
  std::shared_ptr<NotifySignal> signal;
  {
    const std::shared_lock lock(notify_mutex_);
    const auto found = notify_signals_.find(notification.method);
    if (found != notify_signals_.end()) signal = found->second;
  }
  if (signal) {
    signal->Emit(notification);
  } else {
    FORGE_LOG(kError) << "Unknown event '" << notification.method << "()'";
  }
}

void Receiver::Send(Message&& message) { Append(Kind::kSend, std::move(message)); }

void Receiver::Receive(Message&& message) { Append(Kind::kReceive, std::move(message)); }

void Receiver::Append(Kind kind, Message&& message) {
  const std::lock_guard lock(queue_mutex_);
  if (!queue_enabled_) {
    Hold(kind, std::move(message));
  } else if (queue_.empty()) {
    DeliverOne(kind, std::move(message));  // Without the way through the queue.
  } else {
    queue_.emplace_back(kind, std::move(message));
  }
  ProcessQueue();
}

// The caller holds queue_mutex_, also of the next two.
void Receiver::Hold(Kind kind, Message&& message) {
  if (closed_) return;
  if (kind == Kind::kReceive && held_ == kMostHeldMessages) {
    FORGE_LOG(kError) << "RPC message dropped: " << kMostHeldMessages << " wait already";
    return;
  }
  if (kind == Kind::kReceive) ++held_;
  queue_.emplace_back(kind, std::move(message));
}

void Receiver::DeliverOne(Kind kind, Message&& message) {
  if (kind == Kind::kSend) {
    SendImmediately(std::move(message));
  } else {
    ReceiveImmediately(message);
  }
}

void Receiver::SetQueueEnabled() {
  {
    const std::lock_guard lock(queue_mutex_);
    queue_enabled_ = true;
  }
  ProcessQueue();
}

void Receiver::Close() {
  const std::lock_guard lock(queue_mutex_);
  closed_ = true;
  queue_.clear();
}

void Receiver::ProcessQueue() {
  for (;;) {
    const std::lock_guard lock(queue_mutex_);
    if (!queue_enabled_ || queue_.empty()) return;
    Queue queue = std::exchange(queue_, {});
    Deliver(queue);
  }
}

// A handler that sends or receives delivers that at once, before the rest of what was taken out.
void Receiver::Deliver(Queue& queue) {
  Queue current;  // The one that is delivered dies with it.
  try {
    while (!queue.empty()) {
      current.clear();
      current.splice(current.end(), queue, queue.begin());
      DeliverOne(current.front().first, std::move(current.front().second));
    }
  } catch (...) {
    queue_.splice(queue_.begin(), queue);
    throw;
  }
}

void Receiver::OnNotify(std::string_view method, NotifyHandler&& handler) {
  std::shared_ptr<NotifySignal> signal;
  {
    const std::unique_lock lock(notify_mutex_);
    auto& entry = notify_signals_[std::string(method)];
    if (!entry) entry = std::make_shared<NotifySignal>();
    signal = entry;
  }
  signal->Subscribe(std::move(handler));
}

void MessageSlot::Fill(bool immediately, Message&& message) {
  if (slot_) {
    FORGE_LOG(kError) << "The data is already filled.";
    return;
  }
  slot_.emplace(immediately, std::move(message));
}

SendGuard::~SendGuard() noexcept(false) {
  if (!slot_) return;
  auto& [immediately, message] = *slot_;
  immediately ? receiver_.SendImmediately(std::move(message)) : receiver_.Send(std::move(message));
}

ReceiveGuard::~ReceiveGuard() noexcept(false) {
  if (!slot_) return;
  auto& [immediately, message] = *slot_;
  immediately ? receiver_.ReceiveImmediately(message) : receiver_.Receive(std::move(message));
}

}  // namespace flrpc::details
