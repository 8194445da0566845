// What the platform hands to the application that runs in this process.
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

  // The listening socket that the application was started with; -1 when it was not started as a
  // task. The descriptor stays the dispatcher's.
  int localServerSocket();

  // Offers an intent to other applications; the handler runs on the event loop's thread, which is
  // the one that calls this. The reply function may be called from any; the first call counts.
  void registerIntent(const QString& name, IntentHandler handler);
};

}  // namespace RuntimeManager
