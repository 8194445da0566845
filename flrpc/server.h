// An RPC server: it answers the requests of its client, and it receives and sends notifications.
// One client can connect; the connecting request of any other is answered with kMethodNotFound.
//
// Messages that arrive or are sent before a client has connected and Run was called wait, in order.
// Of those that arrive, at most 1,024 messages or 16 MiB wait, whichever limit is reached first;
// the others are dropped with an error line.
//
//   server->OnRequest("open", [](const std::string&, const cw::EncodableValue& params,
//                                std::unique_ptr<flrpc::IReply>&& reply) {
//     reply->SendResult(Open(params));
//   });
//   server->Run();
//
// Threads:   any. Handlers run on the transport's thread. Handlers of messages that have waited run
//            on the thread that ends the waiting: the one that calls Run, or that delivers the
//            connecting request. Handlers run under the receiver's recursive queue lock
//            (docs/protocol.md) and no other. While a handler runs, other threads that send have to
//            wait: a handler that needs long should keep the reply and return. A reply may be used
//            on any thread.
// Ownership: the server keeps the handlers until it is destroyed. A handler owns its reply. A reply
//            that outlives the server does nothing.
// Errors:    an unknown method is answered with kMethodNotFound. A request whose reply is destroyed
//            unused is never answered. A response that exceeds the limits of a frame
//            (cw/admission.h) is replaced by an error with kInternalError; such a notification is
//            dropped with an error line. An exception of a handler leaves the call that delivered
//            the message.
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

// The answer to one request. Each operation sends a response, so only one should be called, once.
// Virtual operations grow only at the end.
class FORGE_EXPORT IReply {
 public:
  virtual ~IReply();

  // Answers with a result, which may be the null value.
  virtual void SendResult(cw::EncodableValue result) = 0;

  // Answers with an error. Null `data`: the error has none.
  virtual void SendError(int code, std::string_view message, cw::EncodableValue data) = 0;
};

// The server as a plug-in holds it. Virtual operations grow only at the end.
class FORGE_EXPORT IServer {
 public:
  using ConnectionCallback = std::function<void(const std::optional<Message::Error>&)>;
  using RequestHandler =
      std::function<void(const std::string& method, const cw::EncodableValue& params,
                         std::unique_ptr<IReply>&& reply)>;
  using NotifyCallback = std::function<void(const Message::Notification&)>;

  virtual ~IServer();

  // Sends a notification to the client. It waits until a client has connected.
  virtual void SendNotify(std::string_view method, const cw::EncodableValue& params) = 0;

  // Calls the callback once, without an error, when the first client has connected; at once if it
  // has already. Several callbacks may be set; an empty one is skipped.
  virtual void OnConnected(ConnectionCallback&& callback) = 0;

  // Sets the handler of a method in the place of an earlier one; an empty handler removes it.
  virtual void OnRequest(std::string_view method, RequestHandler&& handler) = 0;

  // Sets a handler of the client's notifications of this method, for the life of the server.
  // Several handlers of one method are all called, in the order of their registration, until one
  // throws.
  virtual void OnNotify(std::string_view method, NotifyCallback&& handler) = 0;

  // Starts to serve: from now on handlers are called. A client that connects earlier waits for this
  // call. Only the first call has an effect.
  virtual void Run() = 0;
};

// The server as its transport holds it. Virtual operations grow only at the end.
class FORGE_EXPORT IOwnedServer : public IServer {
 public:
  // `send` receives every message that must go out, on any thread. An empty function drops them.
  static std::shared_ptr<IOwnedServer> Create(std::function<void(Message&&)>&& send);

  // Hands a message of the client to the server. A message that nobody handles is a warning line, a
  // notification without a handler is an error line.
  virtual void ReceiveMessage(Message&& message) = 0;
};

}  // namespace flrpc
