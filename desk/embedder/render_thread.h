// A thread that runs tasks in the order in which they are posted.
//
// Threads: Post from any, but not once the end has begun.
#pragma once

#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

#include "desk/embedder/task_queue.h"

namespace desk {

class RenderThread {
 public:
  RenderThread();
  ~RenderThread();  // Waits for the task that runs; the others are dropped.
  RenderThread(const RenderThread&) = delete;
  RenderThread& operator=(const RenderThread&) = delete;

  void Post(TaskQueue::Task task);

 private:
  void Run();

  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<TaskQueue::Task> tasks_;  // Guarded by mutex_, as the next.
  bool is_ending_ = false;
  std::thread thread_;
};

}  // namespace desk
