// A thread that runs tasks in the order in which they are posted.
//
// Threads: any for Post, but not after the destruction has begun.
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
  ~RenderThread();  // Waits for the task that runs, and drops the others.
  RenderThread(const RenderThread&) = delete;
  RenderThread& operator=(const RenderThread&) = delete;

  void Post(TaskQueue::Task task);

 private:
  void Run();

  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<TaskQueue::Task> tasks_;  // Guarded by mutex_.
  bool is_ending_ = false;             // Guarded by mutex_.
  std::thread thread_;
};

}  // namespace desk
