#include "bench/window.h"

#include <cstdio>
#include <cstdlib>
#include <utility>

#include <QEventLoop>
#include <QTimer>

namespace bench {
namespace {

constexpr int kDeadlineMs = 300'000;  // A part of the growth is minutes long.

}  // namespace

void GiveUp(const char* text) {
  std::fprintf(stderr, "process_bench: %s\n", text);
  std::exit(1);
}

void RunLoop(const std::function<void(const std::function<void()>& quit)>& begin) {
  QEventLoop loop;
  QTimer::singleShot(kDeadlineMs, &loop, [] { GiveUp("a peer does not answer"); });
  QTimer::singleShot(0, &loop, [&] { begin([&loop] { loop.quit(); }); });
  loop.exec();
}

KeepRunning Times(int64_t calls) {
  return [calls]() mutable { return calls-- > 0; };
}

Window::Window(KeepRunning keep_running, int size, std::function<void()> send)
    : keep_running_(std::move(keep_running)),
      size_(size),
      send_(std::move(send)),
      untimed_(size - 1) {}

void Window::Open(std::function<void()> end) {
  end_ = std::move(end);
  if (untimed_ == 0) return SendTimed();
  while (in_flight_ < size_) Send();
}

void Window::OnAnswer(bool is_right) {
  if (!is_right) GiveUp("an answer is wrong");
  --in_flight_;
  if (untimed_ > 0 && --untimed_ > 0) return Send();
  SendTimed();
}

void Window::SendTimed() {
  running_ = running_ && keep_running_();
  if (running_) return Send();
  if (in_flight_ == 0) end_();
}

void Window::Send() {
  ++in_flight_;
  send_();
}

}  // namespace bench
