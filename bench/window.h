// What the benchmarks between two processes share: the loop in which calls are sent and answered.
#pragma once

#include <cstdint>
#include <functional>

namespace bench {

// "process_bench: TEXT", and the end: without its peers nothing can be measured.
[[noreturn]] void GiveUp(const char* text);

// Runs the event loop until `quit` was called, which `begin` is given.
void RunLoop(const std::function<void(const std::function<void()>& quit)>& begin);

// Returns whether another call is to be timed. The first call of the function starts the clock; it
// is not called again after it has returned false.
using KeepRunning = std::function<bool()>;

// Returns true that many times, then false.
KeepRunning Times(int64_t calls);

// Keeps `size` calls in flight until as many answers as wanted are timed. The first answers are not
// timed: those of a window that is being filled.
class Window {
 public:
  Window(KeepRunning keep_running, int size, std::function<void()> send);

  // `end` is called when no call is in flight any more.
  void Open(std::function<void()> end);

  void OnAnswer(bool is_right);

 private:
  void Send();
  void SendTimed();

  const KeepRunning keep_running_;
  const int size_;
  const std::function<void()> send_;
  std::function<void()> end_;
  int untimed_;  // So many answers more are not timed.
  int in_flight_ = 0;
  bool running_ = true;
};

}  // namespace bench
