// An RPC client: it sends requests and notifications to one server, matches the responses, and
// dispatches the server's notifications. Messages that are sent before the client is connected wait
// for the connection, in order.
//
//   client->OnConnected([](const auto& error) { if (error) Report(error->message); });
//   client->OnNotify("progress", [](const auto& notification) { Show(notification.params); });
//   client->Run();
//   client->SendRequest("open", params, [](const flrpc::Message::Response& response) {
//     if (const auto* result = response.GetResult()) Use(*result);
//   });
//
//            Run, NotifyStarted, "flrpc.connected" answered
//   connecting ------------------------------------------> connected
//       |  transport error, error answer, too many attempts     |  NotifyDisconnected
//       +---------------------------> failed <------------------+        (failed is final)
//
// Threads:   any. Callbacks run on the thread that brought the news: the transport's thread, or the
//            caller's when the outcome is known already. Responses and notifications are delivered
//            under the receiver's recursive queue lock (docs/protocol.md); callbacks run under no
//            other lock. A callback may do anything with the client, and may drop it. While a
//            handler or a response callback runs, other threads that send have to wait.
// Ownership: the client keeps the callbacks, and destroys a one-shot callback after its call. A
//            client that is dropped destroys the callbacks uncalled. Arguments are copied.
// Errors:    the callback of every request is called exactly once, with the response or with the
//            error of the failure, unless the client is dropped first. An exception of the
//            transport leaves SendRequest; the callback is not called then, unless the response or
//            the loss of the connection came before. If the request had waited for the connection,
//            it is answered with kInternalError instead.
//
//            A message that exceeds the limits of a frame (cw/admission.h) is not sent: a request
//            is answered at once with kInternalError, a notification is an error line. Of the
//            messages that are received before the client is connected, at most 1,024 messages or
//            16 MiB wait, whichever limit is reached first; the others are dropped with an error
//            line.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string_view>

#include "cw/encodable_value.h"
#include "flrpc/message.h"
#include "forge/export.h"

namespace flrpc {

// The client as a plug-in holds it. Virtual operations grow only at the end.
class FORGE_EXPORT IClient {
 public:
  using ConnectionCallback = std::function<void(const std::optional<Message::Error>&)>;
  using ResponseCallback = std::function<void(const Message::Response&)>;
  using NotifyCallback = std::function<void(const Message::Notification&)>;

  virtual ~IClient();

  // Connected: the server has answered the connecting request. Failed: the client has never been
  // connected or is not any more; this is final. A client that still connects is neither.
  virtual bool IsConnected() const = 0;
  virtual bool HasConnectionFailed() const = 0;

  // Sends the connecting request as soon as the transport is up. Each further call, and each error
  // that the server answers, makes one further attempt. At most four requests are sent: an error
  // answer to the last one, or one more call, fails the client.
  virtual void Run() = 0;

  // Calls the callback once, when connecting has ended: without an error when the client is
  // connected, otherwise with the reason. If that is known already, it is called at once. Several
  // callbacks may be set; an empty one is skipped. A connection that is lost while the waiting
  // messages are sent may be told (OnDisconnected) before this one.
  virtual void OnConnected(ConnectionCallback&& callback) = 0;

  // Calls the callback once, with the reason, when an established connection is lost; at once if it
  // is lost already. A connection that never came about is told by OnConnected alone.
  virtual void OnDisconnected(ConnectionCallback&& callback) = 0;

  // Sends a request. The callback (empty: the response does not matter) receives the response. Once
  // the client has failed, it is called at once with the error of the failure.
  virtual void SendRequest(std::string_view method, const cw::EncodableValue& params,
                           ResponseCallback&& callback) = 0;

  // Sends a notification. A client that has failed to connect drops it silently.
  virtual void SendNotify(std::string_view method, const cw::EncodableValue& params) = 0;

  // Sets a handler of the server's notifications of this method, for the life of the client.
  // Several handlers of one method are all called, in the order of their registration, until one
  // throws.
  virtual void OnNotify(std::string_view method, NotifyCallback&& handler) = 0;
};

// The client as its transport holds it, which brings the news. Virtual operations grow only at the
// end.
class FORGE_EXPORT IOwnedClient : public IClient {
 public:
  // `send` receives every message that must go out, on any thread. An empty function drops them.
  static std::shared_ptr<IOwnedClient> Create(std::function<void(Message&&)>&& send);

  // Hands a message of the server to the client. A message that nobody handles is a warning line, a
  // notification without a handler is an error line.
  virtual void ReceiveMessage(Message&& message) = 0;

  // The connection is lost, or could not be made. Without an error the reason is kInternalError.
  // Only the first call has an effect.
  virtual void NotifyDisconnected(std::optional<Message::Error> error) = 0;

  // The transport is up (no error), or could not start. Only the first call has an effect.
  virtual void NotifyStarted(std::optional<Message::Error> error) = 0;
};

}  // namespace flrpc
