// Takes an output over, to see what is written there.
#pragma once

#include <unistd.h>

#include <string>
#include <vector>

namespace test {

// Redirects a descriptor while it lives. What nobody took fails the test.
class OutputCapture {
 public:
  explicit OutputCapture(int descriptor);
  ~OutputCapture();
  OutputCapture(const OutputCapture&) = delete;

  // What was written since the last call: all of it, or line by line.
  std::string TakeText();
  std::vector<std::string> TakeLines();

 private:
  const int descriptor_;
  const int file_;
  const int saved_;
};

// Standard output, where the logger writes; its kind decides on colours.
struct LogCapture : OutputCapture {
  LogCapture() : OutputCapture(STDOUT_FILENO) {}

  // The lines "[level] location message" since the last call, without their locations.
  std::vector<std::string> TakeLines();
  std::string TakeLine();  // The one line; a failure unless there is just one.
};

struct ErrorCapture : OutputCapture {  // Where the codec writes.
  ErrorCapture() : OutputCapture(STDERR_FILENO) {}
};

}  // namespace test
