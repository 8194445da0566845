// Another application that is started in the background by its name.
//
// Threads: a Task is made, started and deleted on the thread whose event loop delivers its
//          callbacks; `stop` may be called from any. Callbacks never run inside start or stop.
#pragma once

#include <functional>
#include <memory>

#include <QObject>
#include <QString>
#include <QStringList>

#include "platform/runtime_manager/error.h"

namespace RuntimeManager {

class Task : public QObject {
  Q_OBJECT

 public:
  enum StopFlag { Force = 0x1 };  // Kill the application at once, without asking it to end first.
  Q_DECLARE_FLAGS(StopFlags, StopFlag)

  using Callback = std::function<void(const Error&)>;

  explicit Task(const QString& name, QObject* parent = nullptr);
  ~Task() override;  // Ends the application if it runs.

  // To be called before start: whether the application gets a socket for messages, and its
  // arguments.
  void withIpcSocket(bool enabled);
  void withArguments(const QStringList& arguments);

  void start(Callback callback);
  void stop(StopFlags flags, Callback callback);

  // The socket's path for TaskMessaging; empty until the application has started.
  QString socketPath() const;

 private:
  struct Private;
  std::unique_ptr<Private> d_;
};

Q_DECLARE_OPERATORS_FOR_FLAGS(Task::StopFlags)

}  // namespace RuntimeManager
