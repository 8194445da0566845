#include "kit/timer_queue.h"

#include <algorithm>

#include "forge/fence.h"

namespace tavo::kit::details {

uint64_t TimerQueue::Add(Millis due, std::function<void()> task) {
  const std::lock_guard lock(mutex_);
  const uint64_t timer = ++last_;
  if (!is_closed_) tasks_.emplace(Key(due, timer), std::move(task));
  return timer;
}

void TimerQueue::Remove(uint64_t timer) {
  Tasks::node_type removed;  // Declared before the lock, so the task is destroyed without it.
  const std::lock_guard lock(mutex_);
  const auto is_wanted = [timer](const auto& entry) { return entry.first.second == timer; };
  const auto found = std::find_if(tasks_.begin(), tasks_.end(), is_wanted);
  if (found != tasks_.end()) removed = tasks_.extract(found);
}

std::optional<Millis> TimerQueue::GetNext() const {
  const std::lock_guard lock(mutex_);
  if (tasks_.empty()) return {};
  return tasks_.begin()->first.first;
}

bool TimerQueue::RunNext(Millis now) {
  Tasks::node_type due;
  {
    const std::lock_guard lock(mutex_);
    if (tasks_.empty() || tasks_.begin()->first.first > now) return false;
    due = tasks_.extract(tasks_.begin());
  }
  forge::Fence("timer", [&due] {
    if (due.mapped()) due.mapped()();
  });
  return true;
}

void TimerQueue::Close() {
  Tasks dropped;
  const std::lock_guard lock(mutex_);
  is_closed_ = true;
  dropped.swap(tasks_);
}

}  // namespace tavo::kit::details
