// Messages, JSON objects, between an application and the task that it started.
//
// Threads: made and deleted on the thread whose event loop reads the messages; `sendMessage` may
//          be called from any.
#pragma once

#include <memory>

#include <QJsonObject>
#include <QObject>
#include <QString>

namespace RuntimeManager {

class TaskMessaging : public QObject {
  Q_OBJECT

 public:
  // The starter's end, which connects to a task's socket.
  explicit TaskMessaging(const QString& socket_path, QObject* parent = nullptr);

  // The task's end, which serves the socket of its start. The caller keeps the descriptor.
  explicit TaskMessaging(int socket_descriptor, QObject* parent = nullptr);

  ~TaskMessaging() override;

  void sendMessage(const QJsonObject& message);

 Q_SIGNALS:
  void messageReceived(const QJsonObject& message);

 private:
  struct Private;
  std::unique_ptr<Private> d_;
};

}  // namespace RuntimeManager
