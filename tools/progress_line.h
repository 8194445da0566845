// A line on the terminal that tells what a subcommand waits for, once that takes more than a
// second. Nothing is shown where nobody looks.
//
//   const ProgressLine progress([&] { return std::to_string(done) + " calls"; });
//
// Threads:   the thread of the event loop, which must run.
// Ownership: the destructor removes the line. The function must live that long.
#pragma once

#include <functional>
#include <string>

#include <QTimer>

namespace tools {

class ProgressLine {
 public:
  // `text` is asked for each second; the seconds are added to it.
  explicit ProgressLine(std::function<std::string()> text);
  ~ProgressLine() { Clear(); }
  ProgressLine(const ProgressLine&) = delete;
  ProgressLine& operator=(const ProgressLine&) = delete;

  // Makes room for another line. This one comes again.
  void Clear();

 private:
  void Show();

  const std::function<std::string()> text_;
  QTimer timer_;
  int seconds_ = 0;
  bool is_shown_ = false;
};

}  // namespace tools
