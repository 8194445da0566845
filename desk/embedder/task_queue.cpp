#include "desk/embedder/task_queue.h"

#include <utility>

#include <QCoreApplication>
#include <QEvent>

namespace desk {

void TaskQueue::Post(Task task) {
  const std::lock_guard lock(mutex_);  // The runner cannot close meanwhile.
  if (!runner_) return;
  tasks_.push_back(std::move(task));
  QCoreApplication::postEvent(runner_, new QEvent(QEvent::User));
}

TaskRunner::TaskRunner() { queue_->runner_ = this; }

void TaskRunner::Close() {
  std::deque<TaskQueue::Task> dropped;  // Destroyed last, because the tasks may call anything.
  const std::lock_guard lock(queue_->mutex_);
  queue_->runner_ = nullptr;
  dropped.swap(queue_->tasks_);
}

bool TaskRunner::event(QEvent* event) {
  if (event->type() != QEvent::User) return QObject::event(event);
  TaskQueue::Task task;
  {
    const std::lock_guard lock(queue_->mutex_);
    if (queue_->tasks_.empty()) return true;
    task = std::move(queue_->tasks_.front());
    queue_->tasks_.pop_front();
  }
  task();
  return true;
}

}  // namespace desk
