// The listening socket that a task is started with.
//
// Its file is in $XDG_RUNTIME_DIR/tavo (mode 0700) or, without that directory, in a private
// temporary directory. The task's supervisor removes the file and the private directory when the
// task has ended; until the supervisor has taken over, the destructor does.
#pragma once

#include <memory>

#include <QByteArray>
#include <QString>

namespace desk {

class TaskSocket {
 public:
  // Null, with the cause in `error`, on failure.
  static std::unique_ptr<TaskSocket> Listen(const QString& task, QString* error);
  ~TaskSocket();
  TaskSocket(const TaskSocket&) = delete;
  TaskSocket& operator=(const TaskSocket&) = delete;

  // Returns the name of the task that a socket with this path belongs to.
  static QString GetTask(const QString& path);

  int GetDescriptor() const { return descriptor_; }  // Closed with this object.
  const QByteArray& GetPath() const { return path_; }
  const QByteArray& GetPrivateDirectory() const { return private_directory_; }  // May be empty.

  // The destructor does not remove the file and the directory any more.
  void HandOver() { owns_files_ = false; }

 private:
  TaskSocket() = default;
  bool PrepareDirectory(QByteArray* directory, QString* error);

  int descriptor_ = -1;
  QByteArray path_;
  QByteArray private_directory_;
  bool owns_files_ = true;
};

}  // namespace desk
