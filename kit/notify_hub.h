// The handlers of notifications, which can be removed. A client keeps its own handlers for ever, so
// the hub gives it one for each method and dispatches here.
//
// Threads:   any. No lock is held while a handler runs, is destroyed, or is registered.
// Ownership: the hub owns the handlers, the subscriptions own nothing of it.
// Errors:    an exception of a handler is an error line; the other handlers are called.
#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "cw/encodable_value.h"
#include "flrpc/client.h"
#include "kit/subscription.h"

namespace tavo::kit::details {

class NotifyHub : public std::enable_shared_from_this<NotifyHub> {
 public:
  using Function = std::function<void(const cw::EncodableValue&)>;

  explicit NotifyHub(std::shared_ptr<flrpc::IClient> client) : client_(std::move(client)) {}

  // Adds a handler of the notifications of a method. The end of the subscription removes it.
  Subscription Add(std::string_view method, Function function);

  // Removes all handlers for ever.
  void Close();

 private:
  struct Handler;
  using Handlers = std::vector<std::shared_ptr<Handler>>;

  void Dispatch(const std::string& method, const cw::EncodableValue& params);
  void Remove(const std::string& method, const std::shared_ptr<Handler>& handler);

  const std::shared_ptr<flrpc::IClient> client_;

  std::mutex mutex_;
  // Guarded by mutex_. By method; one without handlers stays, since the client keeps its own.
  std::unordered_map<std::string, Handlers> handlers_;
  bool is_closed_ = false;  // Guarded by mutex_.
};

}  // namespace tavo::kit::details
