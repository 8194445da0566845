// A task that a subcommand has started, and the client that talks to it.
//
//   TaskClient task(session, "digest");
//   task.Connect();
//   task.SendRequest("digest", params, callback);
//   session.RunUntil([&] { return has_answer; });
//
// It works over the C tables, since a client of ManagerWrapper tells only notifications whose
// methods are known beforehand.
//
// Threads:   the main thread alone.
// Ownership: the destructor drops the callbacks, ends the task and waits for its end. It runs the
//            event loop, so what callbacks refer to must be declared before the task.
// Errors:    CommandError.
#pragma once

#include <deque>
#include <memory>
#include <string>

#include "flrpc/client.h"
#include "tools/session.h"

namespace tools {

class TaskClient {
 public:
  // Begins to start the task.
  TaskClient(Session& session, const std::string& task);
  ~TaskClient();
  TaskClient(const TaskClient&) = delete;
  TaskClient& operator=(const TaskClient&) = delete;

  // Waits for the connection. Throws kNotStarted with the reason why there is none.
  void Connect();

  // As those of flrpc::IClient, for a connected client. Throw kFailed when the message is too large
  // to be sent.
  void SendRequest(const std::string& method, const cw::EncodableValue& params,
                   flrpc::IClient::ResponseCallback callback);
  void SendNotify(const std::string& method, const cw::EncodableValue& params);

  // Returns what the task has notified since the last call.
  std::deque<flrpc::Message::Notification> TakeNotifications();

 private:
  struct State;

  void ThrowUnlessSent(size_t sent_before) const;

  Session& session_;
  const std::shared_ptr<State> state_;
};

}  // namespace tools
