#include "tests/support/log_capture.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <iostream>
#include <sstream>

namespace test {

LogCapture::LogCapture()
    : file_(memfd_create("log", MFD_CLOEXEC)), saved_(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3)) {
  std::cout.flush();
  fflush(stdout);
  fcntl(file_, F_SETFL, O_APPEND);
  dup2(file_, STDOUT_FILENO);
}

LogCapture::~LogCapture() {
  const std::string left = TakeText();
  dup2(saved_, STDOUT_FILENO);
  close(saved_);
  close(file_);
  if (!left.empty()) ADD_FAILURE() << "Log lines that the test did not expect:\n" << left;
}

std::string LogCapture::TakeText() {
  std::cout.flush();
  std::string text(static_cast<size_t>(lseek(file_, 0, SEEK_END)), '\0');
  const ssize_t size = pread(file_, text.data(), text.size(), 0);
  text.resize(size > 0 ? static_cast<size_t>(size) : 0);
  if (ftruncate(file_, 0) != 0) ADD_FAILURE() << "The log cannot be cleared.";
  return text;
}

std::vector<std::string> LogCapture::TakeLines() {
  std::vector<std::string> lines;
  std::istringstream text(TakeText());
  for (std::string line; std::getline(text, line);) {
    const size_t location = line.find(' ');
    const size_t message = line.find(' ', location + 1);
    lines.push_back(message == std::string::npos ? line
                                                 : line.substr(0, location) + line.substr(message));
  }
  return lines;
}

std::string LogCapture::TakeLine() {
  const std::vector<std::string> lines = TakeLines();
  EXPECT_EQ(1u, lines.size());
  return lines.empty() ? "" : lines.front();
}

}  // namespace test
