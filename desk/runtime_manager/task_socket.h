// The listening socket that a task is started with.
//
// It lies in $XDG_RUNTIME_DIR/tavo (mode 0700), or, where there is no such directory, in a private
// temporary one of its own. The task's supervisor removes the file and the private directory when
// the task has ended; until it took over, the destructor does.
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

  // The task that a socket of that path is named after.
  static QString GetTask(const QString& path);

  int GetDescriptor() const { return descriptor_; }  // Closed with this object.
  const QByteArray& GetPath() const { return path_; }
  const QByteArray& GetPrivateDirectory() const { return private_directory_; }  // May be empty.

  // The file and the directory are somebody else's to remove from now on.
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
