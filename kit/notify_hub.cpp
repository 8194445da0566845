#include "kit/notify_hub.h"

#include <algorithm>
#include <atomic>
#include <utility>

#include "forge/fence.h"

namespace tavo::kit::details {

struct NotifyHub::Handler {
  explicit Handler(Function called) : function(std::move(called)) {}

  const Function function;
  std::atomic<bool> is_removed{false};  // A dispatch that runs must skip it then.
};

Subscription NotifyHub::Add(std::string_view method, Function function) {
  const std::string name(method);
  const auto handler = std::make_shared<Handler>(std::move(function));
  bool is_first = false;
  {
    const std::lock_guard lock(mutex_);
    if (is_closed_) return {};
    const auto [entry, is_new] = handlers_.try_emplace(name);
    entry->second.push_back(handler);
    is_first = is_new;
  }
  if (is_first) {
    client_->OnNotify(name, [weak = weak_from_this()](const flrpc::Message::Notification& news) {
      if (const auto hub = weak.lock()) hub->Dispatch(news.method, news.params);
    });
  }
  return Subscription([weak = weak_from_this(), name, weak_handler = std::weak_ptr(handler)] {
    const auto hub = weak.lock();
    const auto removed = weak_handler.lock();
    if (hub && removed) hub->Remove(name, removed);
  });
}

void NotifyHub::Close() {
  std::unordered_map<std::string, Handlers> dropped;
  const std::lock_guard lock(mutex_);
  is_closed_ = true;
  dropped.swap(handlers_);
  for (const auto& [method, handlers] : dropped) {
    for (const auto& handler : handlers) handler->is_removed = true;
  }
}

void NotifyHub::Dispatch(const std::string& method, const cw::EncodableValue& params) {
  Handlers handlers;
  {
    const std::lock_guard lock(mutex_);
    const auto found = handlers_.find(method);
    if (found != handlers_.end()) handlers = found->second;
  }
  for (const auto& handler : handlers) {
    if (handler->is_removed) continue;
    forge::Fence("notification handler", [&] { handler->function(params); });
  }
}

// The handler is destroyed by whoever holds it last, and not under the lock: the caller holds it.
void NotifyHub::Remove(const std::string& method, const std::shared_ptr<Handler>& handler) {
  handler->is_removed = true;
  const std::lock_guard lock(mutex_);
  const auto found = handlers_.find(method);
  if (found == handlers_.end()) return;
  Handlers& handlers = found->second;
  handlers.erase(std::remove(handlers.begin(), handlers.end(), handler), handlers.end());
}

}  // namespace tavo::kit::details
