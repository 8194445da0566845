#include "desk/embedder/render_thread.h"

#include <utility>

namespace desk {

RenderThread::RenderThread() : thread_([this] { Run(); }) {}

RenderThread::~RenderThread() {
  {
    const std::lock_guard lock(mutex_);
    is_ending_ = true;
  }
  changed_.notify_one();
  thread_.join();
}

void RenderThread::Post(TaskQueue::Task task) {
  {
    const std::lock_guard lock(mutex_);
    tasks_.push_back(std::move(task));
  }
  changed_.notify_one();
}

void RenderThread::Run() {
  std::unique_lock lock(mutex_);
  while (true) {
    changed_.wait(lock, [this] { return is_ending_ || !tasks_.empty(); });
    if (is_ending_) return;
    {
      const TaskQueue::Task task = std::move(tasks_.front());
      tasks_.pop_front();
      lock.unlock();
      task();
    }  // The task is destroyed without the lock.
    lock.lock();
  }
}

}  // namespace desk
