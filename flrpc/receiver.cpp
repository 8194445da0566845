#include "flrpc/receiver.h"

#include <exception>
#include <type_traits>

#include "cw/value_tree.h"
#include "flrpc/sendable.h"
#include "forge/logger.h"

namespace flrpc::details {
namespace {

// The approximate overhead of a node of a map and of a block of the heap.
constexpr size_t kNodeBytes = 64;

// The memory of a value without the values in it, which are counted separately.
size_t GetNodeMemory(const cw::EncodableValue& value) {
  return sizeof value + value.Visit([](const auto& held) -> size_t {
    using T = std::decay_t<decltype(held)>;
    if constexpr (std::is_same_v<T, cw::EncodableMap>) {
      return held.size() * kNodeBytes;
    } else if constexpr (std::is_arithmetic_v<T> || std::is_same_v<T, std::monostate> ||
                         std::is_same_v<T, cw::EncodableList> ||
                         std::is_same_v<T, cw::CustomEncodableValue>) {
      return 0;
    } else {
      return kNodeBytes + held.size() * sizeof(typename T::value_type);
    }
  });
}

size_t GetMemory(const cw::EncodableValue& value) {
  size_t bytes = 0;
  cw::details::Walk(value, [&bytes](const cw::EncodableValue& node, size_t) {
    bytes += GetNodeMemory(node);
    return true;
  });
  return bytes;
}

// The approximate memory of a received message.
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

Receiver::Receiver(SendFunction&& send, Handler&& handler, UnsentFunction&& unsent)
    : send_(std::move(send)), handler_(std::move(handler)), unsent_(std::move(unsent)) {}

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

void Receiver::SendNotification(std::string_view method, const cw::EncodableValue& params) {
  auto notification = Message::CreateNotification(method, params);
  if (const char* fault = FindUnsendable(notification)) {
    FORGE_LOG(kError) << "Notification '" << method << "' dropped: " << fault;
  } else {
    Send(std::move(notification));
  }
}

void Receiver::Append(Kind kind, Message&& message) {
  const std::lock_guard lock(queue_mutex_);
  if (queue_enabled_) {  // Then it is empty: the thread that enables it holds the lock until then.
    DeliverOne(kind, std::move(message));
  } else {
    Hold(kind, std::move(message));
  }
}

// The caller of this and of the next two functions holds queue_mutex_.
void Receiver::Hold(Kind kind, Message&& message) {
  if (closed_) return;
  if (kind == Kind::kReceive) {
    const size_t bytes = GetMemory(message);
    if (held_ == kMaxHeldMessages) {
      FORGE_LOG(kError) << "RPC message dropped: " << held_ << " messages wait already";
      return;
    }
    if (held_bytes_ + bytes > kMaxHeldBytes) {
      FORGE_LOG(kError) << "RPC message dropped: with its " << bytes << " bytes more than "
                        << kMaxHeldBytes << " bytes would wait";
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

void Receiver::DeliverHeld(Kind kind, Message&& message) {
  const auto* const request = kind == Kind::kSend ? message.GetRequest() : nullptr;
  if (!request) return DeliverOne(kind, std::move(message));
  const Message::ID id = request->id;
  try {
    DeliverOne(kind, std::move(message));
  } catch (...) {
    if (unsent_) unsent_(id);
    throw;
  }
}

void Receiver::SetQueueEnabled() {
  const std::lock_guard lock(queue_mutex_);
  queue_enabled_ = true;
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

// A message that a handler sends or receives is delivered at once, before the rest of the queue.
void Receiver::Deliver(Queue& queue) {
  std::exception_ptr first_failure;
  for (; !queue.empty(); queue.pop_front()) {
    try {
      DeliverHeld(queue.front().first, std::move(queue.front().second));
    } catch (...) {
      if (!first_failure) first_failure = std::current_exception();
    }
  }
  if (first_failure) std::rethrow_exception(first_failure);
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
