// Another application, started in the background by its name.
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
  enum StopFlag { Force = 0x1 };  // Kill at once, without asking the application first.
  Q_DECLARE_FLAGS(StopFlags, StopFlag)

  using Callback = std::function<void(const Error&)>;

  explicit Task(const QString& name, QObject* parent = nullptr);
  ~Task() override;  // Ends the application if it runs.

  // Before start: whether the application gets a socket to talk to us, and its arguments.
  void withIpcSocket(bool enabled);
  void withArguments(const QStringList& arguments);

  void start(Callback callback);
  void stop(StopFlags flags, Callback callback);

  // Where TaskMessaging reaches the application; empty until it has started.
  QString socketPath() const;

 private:
  struct Private;
  std::unique_ptr<Private> d_;
};

Q_DECLARE_OPERATORS_FOR_FLAGS(Task::StopFlags)

}  // namespace RuntimeManager
