// Texts over the platform's task messaging: each is a JSON object {"data": text}.
//
// Threads: made on the thread whose event loop reads the messages, where the handler runs too; Send
//          and Close may be called from any. The messaging object is destroyed on its own thread.
// Errors:  an exception of the handler ends here as an error line. A message whose "data" is no
//          string is dropped.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include <QObject>

#include "platform/runtime_manager/task_messaging.h"

namespace tavo::details {

class MessageChannel {
 public:
  using Handler = std::function<void(std::string&& text)>;  // In UTF-8.

  MessageChannel(std::shared_ptr<RuntimeManager::TaskMessaging> messaging, Handler handler);
  ~MessageChannel();
  MessageChannel(const MessageChannel&) = delete;
  MessageChannel& operator=(const MessageChannel&) = delete;

  void Send(std::string_view text);

  // Disconnects: messages that arrive later do not reach the handler.
  void Close();

 private:
  const std::shared_ptr<RuntimeManager::TaskMessaging> messaging_;
  QMetaObject::Connection connection_;
};

}  // namespace tavo::details
