// Raw messages on named channels between a plug-in and the embedder.
//
//   messenger->SetMessageHandler("clock", [](const uint8_t* data, size_t size, BinaryReply reply) {
//     const forge::Buffer answer = ...;
//     reply(answer.GetData(), answer.GetSize());
//   });
//
// Data is borrowed until the call returns; null data has the size 0. A handler may replace or
// remove itself, and end the messenger. Nothing of a messenger is called after its end: messages,
// answers and updates that still come are dropped, replies that are still held do nothing.
//
// Threads: the embedder's, where handlers and replies run, too.
// Errors:  an operation that the embedder does not offer does nothing; those on channel updates log
//          it. What a handler or a reply throws is an error line.
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

using BinaryReply = std::function<void(const uint8_t* data, size_t size)>;

// `reply` answers the message, once, now or later; a second answer is refused with a line on
// standard error. The last copy of a reply that was never called answers with nothing, also when
// the handler throws, and a warning names the channel. As long as a copy is kept the other side
// waits. Without memory to call the handler at all the answer is empty, too.
using BinaryMessageHandler =
    std::function<void(const uint8_t* data, size_t size, BinaryReply reply)>;

class FORGE_EXPORT BinaryMessenger {
 public:
  // Null when the context has no engine, or its table cannot be loaded.
  static std::unique_ptr<BinaryMessenger> Create(FlutterOstrelPluginContext* context);

  ~BinaryMessenger();  // Calls nothing in the embedder.
  BinaryMessenger(const BinaryMessenger&) = delete;
  BinaryMessenger& operator=(const BinaryMessenger&) = delete;

  // The reply (empty: none is wanted) is called at most once, with the answer; not when the message
  // could not be sent.
  void Send(const std::string& channel, const uint8_t* data, size_t size, BinaryReply reply) const;

  // The channel's one handler; empty: messages are not received any more.
  void SetMessageHandler(const std::string& channel, BinaryMessageHandler handler);

  // Calls back whenever the other side begins (true) or ceases to listen on the channel. Returns
  // the subscription's id, 0 on failure.
  unsigned OnChannelUpdateSubscribe(const std::string& channel, std::function<void(bool)> callback);
  void OnChannelUpdateUnsubscribe(const std::string& channel, unsigned id);

 private:
  using Table = FlutterOstrelMessengerProcTable;

  BinaryMessenger(_FlutterOstrelEngine* engine, const Table& table);

  bool HasEnded() const { return !handlers_; }

  _FlutterOstrelEngine* const engine_;
  const Table table_;
  std::shared_ptr<details::MessageHandlers> handlers_;  // By channel; owned by this alone.
};

}  // namespace cw
