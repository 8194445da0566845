// An RPC server: answers the requests of its clients, gets and sends notifications. What arrives or
// is sent before a client has connected and Run was called waits, in order. Of what arrives, at most
// 1,024 messages or 16 MiB wait, whichever comes first; the others are dropped with an error line.
//
//   server->OnRequest("open", [](const std::string&, const cw::EncodableValue& params,
//                                std::unique_ptr<flrpc::IReply>&& reply) {
//     reply->SendResult(Open(params));
//   });
//   server->Run();
//
// Threads: any. Handlers run on the transport's thread or, for what has waited, on whichever sends
//          or runs next, under the receiver's recursive queue lock (docs/protocol.md) and no other.
//          A reply may be used on any thread, and after its server is gone: then it does nothing.
//          While a handler runs, sending from other threads waits: a handler that takes long keeps
//          the reply and returns.
// Errors:  an unknown method is answered with kMethodNotFound. A request whose reply is dropped
//          unused is never answered. A response that exceeds the limits of a frame
//          (cw/admission.h) is replaced by an error with kInternalError; such a notification is
//          dropped with an error line.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "cw/encodable_value.h"
#include "flrpc/message.h"
#include "forge/export.h"

namespace flrpc {

// The answer to one request. Virtual operations grow only at the end.
class FORGE_EXPORT IReply {
 public:
  virtual ~IReply();

  virtual void SendResult(cw::EncodableValue result) = 0;
  virtual void SendError(int code, std::string_view message, cw::EncodableValue data) = 0;
};

// What a plug-in holds. Virtual operations grow only at the end.
class FORGE_EXPORT IServer {
 public:
  using ConnectionCallback = std::function<void(const std::optional<Message::Error>&)>;
  using RequestHandler =
      std::function<void(const std::string& method, const cw::EncodableValue& params,
                         std::unique_ptr<IReply>&& reply)>;
  using NotifyCallback = std::function<void(const Message::Notification&)>;

  virtual ~IServer();

  virtual void SendNotify(std::string_view method, const cw::EncodableValue& params) = 0;

  // Told once, without an error, when the first client has connected; at once if it has.
  virtual void OnConnected(ConnectionCallback&& callback) = 0;

  // The last handler of a method counts.
  virtual void OnRequest(std::string_view method, RequestHandler&& handler) = 0;

  // Several handlers of one method are all called.
  virtual void OnNotify(std::string_view method, NotifyCallback&& handler) = 0;

  // Handlers are called from now on; until then a client's connecting waits. Only the first call
  // does anything.
  virtual void Run() = 0;
};

// What the transport holds. Virtual operations grow only at the end.
class FORGE_EXPORT IOwnedServer : public IServer {
 public:
  // `send` gets every message that must go out, on any thread.
  static std::shared_ptr<IOwnedServer> Create(std::function<void(Message&&)>&& send);

  virtual void ReceiveMessage(Message&& message) = 0;
};

}  // namespace flrpc
