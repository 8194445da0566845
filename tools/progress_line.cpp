#include "tools/progress_line.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <chrono>
#include <utility>

#include "desk/common/quiet_write.h"

namespace tools {
namespace {

constexpr char kClear[] = "\r\x1b[K";
constexpr size_t kUsualWidth = 80;

void Write(const std::string& text) {
  size_t written = 0;
  desk::WriteQuietly(STDERR_FILENO, text.data(), text.size(), 0, &written);
}

size_t TerminalWidth() {
  winsize size{};
  const bool is_known = ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 1;
  return is_known ? size.ws_col : kUsualWidth;
}

}  // namespace

ProgressLine::ProgressLine(std::function<std::string()> text) : text_(std::move(text)) {
  if (!isatty(STDERR_FILENO)) return;
  QObject::connect(&timer_, &QTimer::timeout, &timer_, [this] { Show(); });
  timer_.start(std::chrono::seconds(1));
}

void ProgressLine::Clear() {
  if (std::exchange(is_shown_, false)) Write(kClear);
}

void ProgressLine::Show() {
  const std::string line = text_() + ", " + std::to_string(++seconds_) + " s";
  Write(kClear + line.substr(0, TerminalWidth() - 1));
  is_shown_ = true;
}

}  // namespace tools
