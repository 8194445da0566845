// The invocation of intents that the system or other applications offer.
//
// Threads: made and deleted on the thread whose event loop delivers the replies; `invoke` may be
//          called from any.
#pragma once

#include <memory>

#include <QJsonObject>
#include <QObject>
#include <QString>

#include "platform/runtime_manager/error.h"

namespace RuntimeManager {

class IntentsInvoker : public QObject {
  Q_OBJECT

 public:
  explicit IntentsInvoker(QObject* parent = nullptr);
  ~IntentsInvoker() override;

  void invoke(const QString& name, const QJsonObject& options, const QJsonObject& parameters);

 Q_SIGNALS:
  void replyReceived(const QJsonObject& reply, const RuntimeManager::Error& error);

 private:
  struct Private;
  std::unique_ptr<Private> d_;
};

}  // namespace RuntimeManager
