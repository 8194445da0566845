// Takes an output over, to see what is written there.
#pragma once

#include <string>
#include <vector>

namespace test {

// Redirects a descriptor while it lives. What nobody took fails the test.
class OutputCapture {
 public:
  explicit OutputCapture(int descriptor);
  ~OutputCapture();
  OutputCapture(const OutputCapture&) = delete;
  OutputCapture& operator=(const OutputCapture&) = delete;

  // What was written since the last call: all of it, or line by line.
  std::string TakeText();
  std::vector<std::string> TakeLines();

 private:
  const int descriptor_;
  const int file_;
  const int saved_;
};

// Standard output, where the logger writes; its kind decides on colours.
class LogCapture : public OutputCapture {
 public:
  LogCapture();

  // The lines "[level] location message" since the last call, without their locations.
  std::vector<std::string> TakeLines();

  // The one line since the last call; something else, and a failure, unless there is just one.
  std::string TakeLine();
};

// Standard error, where the codec writes.
class ErrorCapture : public OutputCapture {
 public:
  ErrorCapture();
};

}  // namespace test
