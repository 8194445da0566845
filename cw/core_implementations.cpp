// The messenger and the guard of its replies.
#include <atomic>
#include <cassert>
#include <iostream>
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
namespace {

using PendingReplies = details::OneShotCalls<const uint8_t*, size_t>;

size_t SizeOf(const uint8_t* data, size_t size) { return data ? size : 0; }

struct MessengerLinkRef;

}  // namespace

// ---- The messenger, as the embedder knows it ----

class BinaryMessenger::Link final : public forge::Object<Link, MessengerLinkRef*> {
  struct PrivateTag {};

 public:
  Link(BinaryMessenger* messenger, PrivateTag) : Object(nullptr), messenger_(messenger) {}

  static std::shared_ptr<Link> Create(BinaryMessenger* messenger) {
    return Object::Create(messenger, PrivateTag{});
  }

  // Null: there is none.
  std::shared_ptr<const BinaryMessageHandler> FindHandler(std::string_view channel) const {
    const auto found = messenger_->handlers_.find(channel);
    return found == messenger_->handlers_.end() ? nullptr : found->second;
  }

 private:
  BinaryMessenger* const messenger_;  // Owns this.
};

// ---- The answer to one incoming message ----

class BinaryMessenger::Response {
 public:
  Response(std::weak_ptr<Link> link, _FlutterOstrelEngine* engine, FlutterOstrelSendResponse send,
           _FlutterOstrelResponse* response)
      : link_(std::move(link)), engine_(engine), send_(send), response_(response) {}

  void Send(const uint8_t* data, size_t size) {
    if (is_sent_.exchange(true)) {
      std::cerr << "Error: Response can be set only once. Ignoring duplicate response."
                << std::endl;
      return;
    }
    // Not held while the embedder runs: it may end the messenger.
    if (send_ && !link_.expired()) {
      send_(engine_, std::exchange(response_, nullptr), data, SizeOf(data, size));
    }
  }

 private:
  const std::weak_ptr<Link> link_;
  _FlutterOstrelEngine* const engine_;
  const FlutterOstrelSendResponse send_;
  _FlutterOstrelResponse* response_;
  std::atomic<bool> is_sent_{false};
};

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
    : engine_(engine), table_(table), link_(Link::Create(this)) {}

BinaryMessenger::~BinaryMessenger() {
  link_.reset();  // First: handlers that die below may hold replies, which do nothing from now on.
  PendingReplies::GetInstance().Withdraw(this);
}

void BinaryMessenger::Send(const std::string& channel, const uint8_t* data, size_t size,
                           BinaryReply reply) const {
  if (!forge::Set(table_, &Table::Send)) return;
  if (!reply) {
    table_.Send(engine_, channel.c_str(), data, size, nullptr, nullptr);
    return;
  }
  auto& replies = PendingReplies::GetInstance();
  void* const number = replies.Add(std::move(reply), this);
  // The messenger may end within the call. A callback that came though the answer is false has
  // taken the reply.
  if (!table_.Send(engine_, channel.c_str(), data, size, HandleReply, number)) replies.Take(number);
}

void BinaryMessenger::HandleReply(const uint8_t* data, size_t size, void* user_data) {
  forge::Fence("message reply", [&] {
    const BinaryReply reply = PendingReplies::GetInstance().Take(user_data);
    if (reply) reply(data, SizeOf(data, size));
  });
}

void BinaryMessenger::SetMessageHandler(const std::string& channel, BinaryMessageHandler handler) {
  if (!forge::Set(table_, &Table::SetMessageHandler)) return;
  if (!handler) {
    const auto removed = handlers_.extract(channel);  // Dies last: what it holds is foreign.
    table_.SetMessageHandler(engine_, channel.c_str(), nullptr, nullptr);
    return;
  }
  auto shared = std::make_shared<const BinaryMessageHandler>(std::move(handler));
  const auto replaced = std::exchange(handlers_[channel], std::move(shared));
  table_.SetMessageHandler(engine_, channel.c_str(), HandleMessage, link_->GetRef());
}

void BinaryMessenger::HandleMessage(_FlutterOstrelEngine* engine, const char* channel,
                                    const uint8_t* data, size_t size,
                                    FlutterOstrelSendResponse send_response,
                                    _FlutterOstrelResponse* response, void* user_data) {
  forge::Fence("message handler", [&] {
    auto link = Link::FromRef(static_cast<MessengerLinkRef*>(user_data));
    const auto handler = link && channel ? link->FindHandler(channel) : nullptr;
    if (!handler) return;
    auto answer = std::make_shared<Response>(link, engine, send_response, response);
    link.reset();  // The handler may end the messenger, and the link with it.
    (*handler)(data, SizeOf(data, size),
               [answer = std::move(answer)](const uint8_t* answer_data, size_t answer_size) {
                 answer->Send(answer_data, answer_size);
               });
  });
}

unsigned BinaryMessenger::OnChannelUpdateSubscribe(const std::string& channel,
                                                   std::function<void(bool)> callback) {
  if (!forge::Covered(table_, &Table::ChannelUpdateSubscribe)) {
    FORGE_LOG(kError) << forge::NotProvided("OnChannelUpdateSubscribe");
    return 0;
  }
  const auto slot =
      details::CreateFencedSlot<FlutterOstrelBoolSlot>("channel update", std::move(callback));
  return table_.ChannelUpdateSubscribe(engine_, channel.c_str(), &slot);
}

void BinaryMessenger::OnChannelUpdateUnsubscribe(const std::string& channel, unsigned id) {
  if (!forge::Covered(table_, &Table::ChannelUpdateUnsubscribe)) {
    FORGE_LOG(kError) << forge::NotProvided("OnChannelUpdateUnsubscribe");
    return;
  }
  table_.ChannelUpdateUnsubscribe(engine_, channel.c_str(), id);
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
