// Tasks that run on the embedder's thread, from its event loop, in order.
//
// Threads: Post from any; everything else on the embedder's.
#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <mutex>

#include <QObject>

namespace desk {

class TaskQueue {
 public:
  using Task = std::function<void()>;

  // Drops the task when the queue is closed.
  void Post(Task task);

 private:
  friend class TaskRunner;

  std::mutex mutex_;
  std::deque<Task> tasks_;     // Guarded by mutex_.
  QObject* runner_ = nullptr;  // Guarded by mutex_. Null when the queue is closed.
};

// Runs a queue's tasks from the event loop of the thread that made it.
class TaskRunner final : public QObject {
 public:
  TaskRunner();
  ~TaskRunner() override { Close(); }

  const std::shared_ptr<TaskQueue>& GetQueue() const { return queue_; }

  // Drops the tasks that wait, and all tasks that are posted later.
  void Close();

  bool event(QEvent* event) override;  // One for each task.

 private:
  const std::shared_ptr<TaskQueue> queue_ = std::make_shared<TaskQueue>();
};

}  // namespace desk
