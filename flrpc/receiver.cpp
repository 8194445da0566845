#include "flrpc/receiver.h"

#include <type_traits>

#include "forge/logger.h"

namespace flrpc::details {
namespace {

constexpr size_t kNodeBytes = 64;  // Of a map or the heap, around what is in it; about.

size_t GetMemory(const cw::EncodableValue& value) {
  return sizeof value + value.Visit([](const auto& held) {
    using T = std::decay_t<decltype(held)>;
    size_t bytes = 0;
    if constexpr (std::is_same_v<T, cw::EncodableList>) {
      for (const auto& element : held) bytes += GetMemory(element);
    } else if constexpr (std::is_same_v<T, cw::EncodableMap>) {
      for (const auto& [key, mapped] : held) {
        bytes += kNodeBytes + GetMemory(key) + GetMemory(mapped);
      }
    } else if constexpr (std::is_class_v<T> && !std::is_same_v<T, std::monostate> &&
                         !std::is_same_v<T, cw::CustomEncodableValue>) {
      bytes += kNodeBytes + held.size() * sizeof(typename T::value_type);
    }
    return bytes;
  });
}

// What a received message takes, about.
size_t GetMemory(const Message& message) {
  if (const auto* request = message.GetRequest()) {
    return request->id.GetText().size() + request->method.size() + GetMemory(request->params);
  }
  if (const auto* notification = message.GetNotification()) {
    return notification->method.size() + GetMemory(notification->params);
  }
  const auto* response = message.GetResponse();
  if (const auto* result = response ? response->GetResult() : nullptr) {
    return response->id.GetText().size() + GetMemory(*result);
  }
  const auto* error = response ? response->GetError() : message.GetError();
  return error ? error->message.size() + GetMemory(error->data) : 0;
}

}  // namespace

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
  if (kind == Kind::kReceive) {
    const size_t bytes = GetMemory(message);
    if (held_ == kMostHeldMessages || held_bytes_ + bytes > kMostHeldBytes) {
      FORGE_LOG(kError) << "RPC message dropped: " << held_ << " wait already";
      return;
    }
    ++held_;
    held_bytes_ += bytes;
  }
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
