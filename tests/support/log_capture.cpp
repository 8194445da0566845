#include "tests/support/log_capture.h"

#include <fcntl.h>
#include <sys/mman.h>

#include <iostream>
#include <regex>

namespace test {

// GoogleTest prints by way of `stdout`, the logger by way of std::cout, which keeps the stream that
// was there first: what a failed test has to say is no log line, and is seen.
[[maybe_unused]] static const bool is_told_apart = [] {
  static const std::ios_base::Init streams;
  stdout = fdopen(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3), "w");
  return setvbuf(stdout, nullptr, _IOLBF, 0) == 0;
}();

OutputCapture::OutputCapture(int descriptor)
    : descriptor_(descriptor),
      file_(memfd_create("output", MFD_CLOEXEC)),
      saved_(fcntl(descriptor, F_DUPFD_CLOEXEC, 3)) {
  std::cout.flush();
  fcntl(file_, F_SETFL, O_APPEND);
  dup2(file_, descriptor_);
}

OutputCapture::~OutputCapture() {
  EXPECT_EQ("", TakeText()) << "The test did not expect this output.";
  dup2(saved_, descriptor_);
  close(saved_);
  close(file_);
}

std::string OutputCapture::TakeText() {
  std::cout.flush();
  std::string text(static_cast<size_t>(lseek(file_, 0, SEEK_END)), '\0');
  EXPECT_EQ(text.size(), pread(file_, text.data(), text.size(), 0));
  EXPECT_EQ(0, ftruncate(file_, 0));
  return text;
}

std::vector<std::string> OutputCapture::TakeLines() {
  static const std::regex location("^(\\[\\w+\\]) \\S+ ");
  std::vector<std::string> lines;
  std::istringstream text(TakeText());
  for (std::string line; std::getline(text, line);) {
    lines.push_back(std::regex_replace(line, location, "$1 "));
  }
  return lines;
}

std::string OutputCapture::TakeLine() {
  const std::vector<std::string> lines = TakeLines();
  EXPECT_EQ(1u, lines.size());
  return lines.empty() ? "" : lines.front();
}

}  // namespace test
