// Takes standard output over, to see what the logger writes.
#pragma once

#include <string>
#include <vector>

namespace test {

// Redirects descriptor 1 (whose kind decides on colours) while it lives. Lines that nobody took
// fail the test.
class LogCapture {
 public:
  LogCapture();
  ~LogCapture();
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  std::string TakeText();  // All that was written since the last call.

  // The lines "[level] location message" since the last call, without their locations.
  std::vector<std::string> TakeLines();

  // The one line since the last call; something else, and a failure, unless there is just one.
  std::string TakeLine();

 private:
  const int file_;
  const int saved_;
};

}  // namespace test
