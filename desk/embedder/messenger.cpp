#include "desk/embedder/messenger.h"

#include <algorithm>
#include <memory>
#include <utility>
#include <vector>

#include "desk/embedder/engine.h"
#include "desk/embedder/messages.h"

namespace desk {
namespace {

// The answer that the plug-in waits for. If nobody answers, the destructor sends an empty one.
class PendingReply {
 public:
  PendingReply(const Engine& engine, FlutterOstrelReplyCallback callback, void* user_data)
      : engine_(engine.handles.engine),
        queue_(engine.runner.GetQueue()),
        callback_(callback),
        user_data_(user_data) {}
  PendingReply(const PendingReply&) = delete;
  PendingReply& operator=(const PendingReply&) = delete;

  ~PendingReply() {
    if (!callback_) return;
    queue_->Post(
        [callback = callback_, user_data = user_data_] { callback(nullptr, 0, user_data); });
  }

  void Answer(const uint8_t* data, size_t size) {
    const auto callback = std::exchange(callback_, nullptr);
    if (callback && FindEngine(engine_)) callback(size ? data : nullptr, size, user_data_);
  }

 private:
  const _FlutterOstrelEngine* const engine_;
  const std::shared_ptr<TaskQueue> queue_;
  FlutterOstrelReplyCallback callback_;
  void* const user_data_;
};

void SendResponse(_FlutterOstrelEngine* handle, _FlutterOstrelResponse* response,
                  const uint8_t* data, size_t size) {
  With(handle, [&](Engine& engine) { engine.messenger.Respond(response, data, data ? size : 0); });
}

}  // namespace

void Messenger::Send(const char* channel, const uint8_t* data, size_t size,
                     FlutterOstrelReplyCallback callback, void* user_data) {
  cw::EncodableMap details = DescribeMessage(data, size);
  details["channel"] = channel;
  details["size"] = ToValue(size);
  engine_.actions.Record("Send", std::move(details));
  const auto pending = std::make_shared<PendingReply>(engine_, callback, user_data);
  engine_.runner.GetQueue()->Post([this, pending, name = std::string(channel),
                                   bytes = std::vector<uint8_t>(data, data + size)] {
    Pass(name, bytes.data(), bytes.size(), [pending](const uint8_t* answer, size_t answer_size) {
      pending->Answer(answer, answer ? answer_size : 0);
    });
  });
}

void Messenger::Pass(const std::string& channel, const uint8_t* data, size_t size,
                     const Reply& reply) {
  if (const auto found = listeners_.find(channel); found != listeners_.end()) {
    const Listener listener = found->second;  // The listener may remove itself.
    return listener(data, size, reply);
  }
  const auto canned = engine_.description.channels.find(channel);
  if (canned == engine_.description.channels.end()) return;  // The dropped reply answers.
  const std::vector<uint8_t> answer = Encode(canned->second);
  reply(answer.data(), answer.size());
}

void Messenger::SetHandler(const char* channel, FlutterOstrelMessageCallback callback,
                           void* user_data) {
  engine_.actions.Record("SetMessageHandler",
                         {{"channel", channel}, {"handled", callback != nullptr}});
  handlers_[channel] = {callback, user_data};
}

unsigned int Messenger::Subscribe(const char* channel, SharedSlot<FlutterOstrelBoolSlot> slot) {
  return updates_[channel].Add(engine_.NextId(), std::move(slot));
}

void Messenger::Unsubscribe(const char* channel, unsigned int id) {
  if (const auto found = updates_.find(channel); found != updates_.end()) found->second.Remove(id);
}

bool Messenger::Deliver(const std::string& channel, const uint8_t* data, size_t size, Reply reply) {
  const auto found = handlers_.find(channel);
  if (found == handlers_.end() || !found->second.callback) return false;
  const Handler handler = found->second;
  if (++last_response_ == 0) ++last_response_;  // A handle is never null.
  const uintptr_t number = last_response_;
  responses_.insert_or_assign(number, Response{&found->first, std::move(reply)});
  handler.callback(engine_.handles.engine, channel.c_str(), data, size, SendResponse,
                   reinterpret_cast<_FlutterOstrelResponse*>(number), handler.user_data);
  return true;
}

void Messenger::Respond(_FlutterOstrelResponse* response, const uint8_t* data, size_t size) {
  const auto node = responses_.extract(reinterpret_cast<uintptr_t>(response));
  if (node.empty() || !node.mapped().reply) return;
  node.mapped().reply(data, size);
}

void Messenger::Listen(const std::string& channel, Listener listener) {
  const bool did_listen = listeners_.count(channel) != 0;
  const bool will_listen = listener != nullptr;
  if (will_listen) {
    listeners_[channel] = std::move(listener);
  } else {
    listeners_.erase(channel);
  }
  if (did_listen == will_listen) return;
  if (const auto found = updates_.find(channel); found != updates_.end()) {
    found->second.Emit(will_listen);
  }
}

void Messenger::Close() {
  std::vector<std::pair<uintptr_t, std::string>> unanswered;
  for (const auto& entry : responses_) unanswered.emplace_back(entry.first, *entry.second.channel);
  std::sort(unanswered.begin(), unanswered.end());
  for (auto& entry : unanswered) {
    engine_.actions.Record("Unanswered", {{"channel", std::move(entry.second)}});
  }
  const auto responses = std::exchange(responses_, {});
  const auto listeners = std::exchange(listeners_, {});
  handlers_.clear();
  for (auto& entry : updates_) entry.second.Clear();
}

}  // namespace desk
