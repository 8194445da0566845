// An RPC client: sends requests and notifications to one server, matches the responses, dispatches
// the server's notifications. What is sent before the connection stands waits for it, in order.
//
//            Run, NotifyStarted, "flrpc.connected" answered
//   connecting ------------------------------------------> connected
//       |  transport error, error answer, too many attempts     |  NotifyDisconnected
//       +---------------------------> failed <------------------+        (failed is final)
//
// Threads: any. Callbacks run on the thread that brought the news: the transport's, or the caller's
//          when the outcome is known already. Responses and notifications are delivered under the
//          receiver's recursive queue lock (docs/protocol.md), no callback under another one.
//          A callback may do anything with the client, also drop it.
//          While a handler or a response callback runs, sending from other threads waits.
// Errors:  the callback of every request is called exactly once, with the response or with the
//          error of the failure; not at all when the client is dropped first, or when SendRequest
//          throws what the transport threw. A message that exceeds the limits of a frame
//          (cw/admission.h) is not sent: a request is answered at once with kInternalError, a
//          notification is an error line. Of what is received before the connection stands, at most
//          1,024 messages or 16 MiB wait, whichever comes first; the others are dropped with an error
//          line. A loss that comes while what has waited is being sent may be told before the
//          connection is.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string_view>

#include "cw/encodable_value.h"
#include "flrpc/message.h"
#include "forge/export.h"

namespace flrpc {

// What a plug-in holds. Virtual operations grow only at the end.
class FORGE_EXPORT IClient {
 public:
  using ConnectionCallback = std::function<void(const std::optional<Message::Error>&)>;
  using ResponseCallback = std::function<void(const Message::Response&)>;
  using NotifyCallback = std::function<void(const Message::Notification&)>;

  virtual ~IClient();

  virtual bool IsConnected() const = 0;
  virtual bool HasConnectionFailed() const = 0;

  // Connects as soon as the transport is up. Each further call makes one further attempt; the
  // fifth in all is a failure.
  virtual void Run() = 0;

  // Told once how connecting ended (no error: connected), at once if that is known.
  virtual void OnConnected(ConnectionCallback&& callback) = 0;

  // Told once of the loss of a connection that stood, at once if it is lost already.
  virtual void OnDisconnected(ConnectionCallback&& callback) = 0;

  virtual void SendRequest(std::string_view method, const cw::EncodableValue& params,
                           ResponseCallback&& callback) = 0;
  virtual void SendNotify(std::string_view method, const cw::EncodableValue& params) = 0;

  // Several handlers of one method are all called.
  virtual void OnNotify(std::string_view method, NotifyCallback&& handler) = 0;
};

// What the transport holds: it brings the news. Virtual operations grow only at the end.
class FORGE_EXPORT IOwnedClient : public IClient {
 public:
  // `send` gets every message that must go out, on any thread.
  static std::shared_ptr<IOwnedClient> Create(std::function<void(Message&&)>&& send);

  virtual void ReceiveMessage(Message&& message) = 0;

  // The connection is lost, or could not be made. No error: kInternalError.
  virtual void NotifyDisconnected(std::optional<Message::Error> error) = 0;

  // The transport is up (no error), or could not start.
  virtual void NotifyStarted(std::optional<Message::Error> error) = 0;
};

}  // namespace flrpc
