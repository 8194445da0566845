// The messenger and the guard of its replies.
#include <atomic>
#include <cassert>
#include <iostream>
#include <map>
#include <string_view>
#include <utility>

#include "cw/binary_messenger.h"
#include "cw/embedder_slot.h"
#include "cw/embedder_table.h"
#include "cw/one_shot_calls.h"
#include "cw/reply_manager.h"
#include "forge/fence.h"
#include "forge/logger.h"
#include "forge/object.h"

namespace cw {
namespace details {

struct MessageHandlersRef;

// The handlers of one messenger by their channels. The embedder knows this object by its handle,
// which resolves to nothing once the messenger is gone.
class MessageHandlers final : public forge::Object<MessageHandlers, MessageHandlersRef*> {
  struct PrivateTag {
    explicit PrivateTag() = default;
  };

 public:
  // Shared with a running call and its reply, neither of which keeps the other's part alive.
  struct Handler {
    std::shared_ptr<const BinaryMessageHandler> function;
    std::shared_ptr<const std::string> channel;
  };

  explicit MessageHandlers(PrivateTag) : Object(nullptr) {}
  static std::shared_ptr<MessageHandlers> Create() { return Object::Create(PrivateTag{}); }

  // Both return the handler that was removed. The caller destroys it, because its captured objects
  // may call anything.
  Handler Set(const std::string& channel, BinaryMessageHandler handler) {
    return std::exchange(handlers_[channel],
                         {std::make_shared<const BinaryMessageHandler>(std::move(handler)),
                          std::make_shared<const std::string>(channel)});
  }
  Handler Remove(const std::string& channel) {
    const auto node = handlers_.extract(channel);
    return node ? node.mapped() : Handler();
  }

  Handler Find(std::string_view channel) const {
    const auto found = handlers_.find(channel);
    return found == handlers_.end() ? Handler() : found->second;
  }

 private:
  std::map<std::string, Handler, std::less<>> handlers_;
};

}  // namespace details

namespace {

using details::MessageHandlers;
using PendingReplies = details::OneShotCalls<const uint8_t*, size_t>;

size_t SizeOf(const uint8_t* data, size_t size) { return data ? size : 0; }

// The answer to one incoming message: nothing, unless the handler's reply is called.
class Response {
 public:
  Response(std::weak_ptr<const MessageHandlers> messenger,
           std::shared_ptr<const std::string> channel, _FlutterOstrelEngine* engine,
           FlutterOstrelSendResponse send, _FlutterOstrelResponse* response)
      : messenger_(std::move(messenger)),
        channel_(std::move(channel)),
        engine_(engine),
        send_(send),
        response_(response) {}
  ~Response() {
    if (is_sent_ || messenger_.expired()) return;
    forge::Fence("message reply", [this] {
      FORGE_LOG(kWarn) << "The handler of the channel \"" << *channel_
                       << "\" let a message go without a reply. The answer is empty.";
    });
    Send(nullptr, 0);
  }
  Response(const Response&) = delete;
  Response& operator=(const Response&) = delete;

  void Send(const uint8_t* data, size_t size) {
    if (is_sent_.exchange(true)) {
      std::cerr << "Error: Response can be set only once. Ignoring duplicate response."
                << std::endl;
      return;
    }
    // No strong pointer is held while the embedder runs, because it may end the messenger.
    if (send_ && !messenger_.expired()) {
      send_(engine_, std::exchange(response_, nullptr), data, SizeOf(data, size));
    }
  }

 private:
  const std::weak_ptr<const MessageHandlers> messenger_;
  const std::shared_ptr<const std::string> channel_;
  _FlutterOstrelEngine* const engine_;
  const FlutterOstrelSendResponse send_;
  _FlutterOstrelResponse* response_;
  std::atomic<bool> is_sent_{false};
};

void HandleMessage(_FlutterOstrelEngine* engine, const char* channel, const uint8_t* data,
                   size_t size, FlutterOstrelSendResponse send_response,
                   _FlutterOstrelResponse* response, void* user_data) {
  forge::Fence("message handler", [&] {
    auto handlers = MessageHandlers::FromRef(static_cast<details::MessageHandlersRef*>(user_data));
    if (!handlers) return;
    const auto handler = channel ? handlers->Find(channel) : MessageHandlers::Handler();
    std::shared_ptr<Response> answer;
    BinaryReply reply;
    if (handler.function) {
      forge::Fence("message handler", [&] {
        answer =
            std::make_shared<Response>(handlers, handler.channel, engine, send_response, response);
        reply = [answer](const uint8_t* answer_data, size_t answer_size) {
          answer->Send(answer_data, answer_size);
        };
      });
    }
    if (!reply) {  // The handler was removed meanwhile, or there is no memory for its reply.
      if (answer) return answer->Send(nullptr, 0);
      if (send_response) send_response(engine, response, nullptr, 0);
      return;
    }
    answer.reset();    // From here on the response ends with the handler's last copy of the reply.
    handlers.reset();  // The handler may destroy the messenger, which destroys the handlers.
    (*handler.function)(data, SizeOf(data, size), std::move(reply));
  });
}

void HandleReply(const uint8_t* data, size_t size, void* user_data) {
  forge::Fence("message reply", [&] {
    const BinaryReply reply = PendingReplies::GetInstance().Take(user_data);
    if (reply) reply(data, SizeOf(data, size));
  });
}

}  // namespace

// ---- BinaryMessenger ----

std::unique_ptr<BinaryMessenger> BinaryMessenger::Create(FlutterOstrelPluginContext* context) {
  Table table;
  if (!details::LoadTable(context, &FlutterOstrelPluginContext::engine,
                          &FlutterOstrelPluginContext::MessengerProcTableLoad, &table)) {
    return nullptr;
  }
  return std::unique_ptr<BinaryMessenger>(new BinaryMessenger(context->engine, table));
}

BinaryMessenger::BinaryMessenger(_FlutterOstrelEngine* engine, const Table& table)
    : engine_(engine), table_(table), handlers_(MessageHandlers::Create()) {}

BinaryMessenger::~BinaryMessenger() {
  // Destroyed handlers may call this object, for which it counts as ended already.
  const auto handlers = std::exchange(handlers_, nullptr);
  PendingReplies::GetInstance().Withdraw(this);
}

void BinaryMessenger::Send(const std::string& channel, const uint8_t* data, size_t size,
                           BinaryReply reply) const {
  if (HasEnded() || !forge::Set(table_, &Table::Send)) return;
  const size_t data_size = SizeOf(data, size);
  if (!reply) {
    table_.Send(engine_, channel.c_str(), data, data_size, nullptr, nullptr);
    return;
  }
  auto& replies = PendingReplies::GetInstance();
  void* const number = replies.Add(std::move(reply), this);
  // The messenger may be destroyed within the call. If the callback came although the result is
  // false, the reply is taken already.
  if (!table_.Send(engine_, channel.c_str(), data, data_size, HandleReply, number)) {
    replies.Take(number);
  }
}

void BinaryMessenger::SetMessageHandler(const std::string& channel, BinaryMessageHandler handler) {
  if (HasEnded() || !forge::Set(table_, &Table::SetMessageHandler)) return;
  if (!handler) {
    const auto removed = handlers_->Remove(channel);
    table_.SetMessageHandler(engine_, channel.c_str(), nullptr, nullptr);
    return;
  }
  const auto replaced = handlers_->Set(channel, std::move(handler));
  table_.SetMessageHandler(engine_, channel.c_str(), HandleMessage, handlers_->GetRef());
}

unsigned BinaryMessenger::OnChannelUpdateSubscribe(const std::string& channel,
                                                   std::function<void(bool)> callback) {
  if (HasEnded()) return 0;
  if (!FORGE_COVERED_OR_LOG_AS(table_, ChannelUpdateSubscribe, "OnChannelUpdateSubscribe")) {
    return 0;
  }
  std::function<void(bool)> while_living = [messenger = std::weak_ptr(handlers_),
                                            callback = std::move(callback)](bool listens) {
    if (callback && !messenger.expired()) callback(listens);
  };
  const auto slot =
      details::CreateFencedSlot<FlutterOstrelBoolSlot>("channel update", std::move(while_living));
  return table_.ChannelUpdateSubscribe(engine_, channel.c_str(), &slot);
}

void BinaryMessenger::OnChannelUpdateUnsubscribe(const std::string& channel, unsigned id) {
  if (HasEnded()) return;
  if (FORGE_COVERED_OR_LOG_AS(table_, ChannelUpdateUnsubscribe, "OnChannelUpdateUnsubscribe")) {
    table_.ChannelUpdateUnsubscribe(engine_, channel.c_str(), id);
  }
}

// ---- ReplyManager ----

namespace internal {

ReplyManager::ReplyManager(BinaryReply reply) : reply_handler_(std::move(reply)) {
  assert(reply_handler_);
}

ReplyManager::~ReplyManager() {
  if (reply_handler_) {
    std::cerr << "Warning: Failed to respond to a message. This is a memory leak." << std::endl;
  }
}

void ReplyManager::SendResponseData(const std::vector<uint8_t>* data) {
  const BinaryReply reply = std::exchange(reply_handler_, nullptr);
  if (!reply) {
    std::cerr << "Error: Only one of Success, Error, or NotImplemented can be called,"
              << " and it can be called exactly once. Ignoring duplicate result." << std::endl;
    return;
  }
  const bool has_data = data && !data->empty();
  reply(has_data ? data->data() : nullptr, has_data ? data->size() : 0);
}

}  // namespace internal
}  // namespace cw
