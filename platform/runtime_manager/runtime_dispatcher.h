// The platform's services for the application that runs in this process.
#pragma once

#include <functional>

#include <QJsonObject>
#include <QString>

namespace RuntimeManager {

class RuntimeDispatcher {
 public:
  using IntentReply = std::function<void(const QJsonObject& answer)>;
  using IntentHandler = std::function<void(const QJsonObject& parameters, IntentReply reply)>;

  static RuntimeDispatcher* instance();

  // Returns the listening socket that the application was started with, or -1 when it was not
  // started as a task. The dispatcher owns the descriptor.
  int localServerSocket();

  // Offers an intent to other applications. The handler runs on the event loop's thread, which must
  // be the thread that calls this. The reply function may be called from any thread; only the first
  // call counts.
  void registerIntent(const QString& name, IntentHandler handler);
};

}  // namespace RuntimeManager
