// Takes an output over, to see what is written there.
#pragma once

#include <unistd.h>

#include "tests/support/test_base.h"

namespace test {

// Redirects a descriptor while it lives. What nobody took fails the test.
class OutputCapture {
 public:
  explicit OutputCapture(int descriptor);
  ~OutputCapture();
  OutputCapture(const OutputCapture&) = delete;

  // What was written since the last call. The lines of the logger, "[level] location message", come
  // without their locations.
  std::string TakeText();
  std::vector<std::string> TakeLines();
  std::string TakeLine();  // A failure unless there is just one.

 private:
  const int descriptor_;
  const int file_;
  const int saved_;
};

struct LogCapture : OutputCapture {  // Where the logger writes.
  LogCapture() : OutputCapture(STDOUT_FILENO) {}
};

struct ErrorCapture : OutputCapture {  // Where the codec writes.
  ErrorCapture() : OutputCapture(STDERR_FILENO) {}
};

class LogTest : public TestBase {
 protected:
  void ExpectError(const std::string& line) { EXPECT_EQ("[error] " + line, log_.TakeLine()); }

  LogCapture log_;
};

}  // namespace test
