// Raw messages on named channels between a plug-in and the embedder.
//
//   messenger->SetMessageHandler("clock", [](const uint8_t* data, size_t size, BinaryReply reply) {
//     const forge::Buffer answer = ...;
//     reply(answer.GetData(), answer.GetSize());
//   });
//
// Data is borrowed until the call returns; null data has the size 0. A handler may replace or
// remove itself, and it may destroy the messenger. A destroyed messenger calls nothing: messages,
// answers and updates that still arrive are dropped, and replies that are still held do nothing.
//
// Threads:   the embedder's thread, where handlers, replies and callbacks run too.
// Ownership: the messenger keeps the handlers and the pending replies, and destroys them with
//            itself. A handler that runs at that moment lives until its call returns. The engine
//            must live whenever an operation is called; the context is needed during Create only.
// Errors:    an operation that the embedder does not offer does nothing; only the operations on
//            channel updates log it. An exception of a handler, a reply or a callback is an error
//            line.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "forge/export.h"
#include "platform/flutter_ostrel/flutter_ostrel.h"

namespace cw {
namespace details {
class MessageHandlers;
}  // namespace details

// Receives the answer to a message. Null data and size 0 mean that nobody answered, or that the
// answer is empty.
using BinaryReply = std::function<void(const uint8_t* data, size_t size)>;

// Receives a message. `reply` answers the message once, during the call or later. A second answer
// is refused with a line on standard error. A reply whose last copy is destroyed without a call
// answers with nothing, also when the handler throws, and a warning names the channel. As long as a
// copy is kept the sender waits. If there is no memory to call the handler, the answer is empty.
using BinaryMessageHandler =
    std::function<void(const uint8_t* data, size_t size, BinaryReply reply)>;

class FORGE_EXPORT BinaryMessenger {
 public:
  // Returns null when the context is null, when it has no engine, or when the table cannot be
  // loaded.
  static std::unique_ptr<BinaryMessenger> Create(FlutterOstrelPluginContext* context);

  ~BinaryMessenger();  // Calls no function of the embedder.
  BinaryMessenger(const BinaryMessenger&) = delete;
  BinaryMessenger& operator=(const BinaryMessenger&) = delete;

  // Sends a message. The reply (empty: no answer is wanted) is called at most once, with the
  // answer. It is destroyed uncalled when the message cannot be sent and when the messenger is
  // destroyed first.
  void Send(const std::string& channel, const uint8_t* data, size_t size, BinaryReply reply) const;

  // Sets the channel's only handler in the place of an earlier one. An empty handler removes it:
  // the embedder delivers no messages of the channel any more.
  void SetMessageHandler(const std::string& channel, BinaryMessageHandler handler);

  // Calls the callback whenever the other side begins (true) or stops (false) to listen on the
  // channel. The present state is not told. Returns the subscription's id, or 0 on failure.
  unsigned OnChannelUpdateSubscribe(const std::string& channel, std::function<void(bool)> callback);

  // Ends a subscription; the embedder ignores an unknown id.
  void OnChannelUpdateUnsubscribe(const std::string& channel, unsigned id);

 private:
  using Table = FlutterOstrelMessengerProcTable;

  BinaryMessenger(_FlutterOstrelEngine* engine, const Table& table);

  bool HasEnded() const { return !handlers_; }

  _FlutterOstrelEngine* const engine_;
  const Table table_;
  // By channel. This object is the only owner; others hold weak pointers. Null once the messenger
  // ends.
  std::shared_ptr<details::MessageHandlers> handlers_;
};

}  // namespace cw
