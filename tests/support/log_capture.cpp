#include "tests/support/log_capture.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <iostream>
#include <sstream>

namespace test {

OutputCapture::OutputCapture(int descriptor)
    : descriptor_(descriptor),
      file_(memfd_create("output", MFD_CLOEXEC)),
      saved_(fcntl(descriptor, F_DUPFD_CLOEXEC, 3)) {
  std::cout.flush();
  fflush(nullptr);
  fcntl(file_, F_SETFL, O_APPEND);
  dup2(file_, descriptor_);
}

OutputCapture::~OutputCapture() {
  const std::string left = TakeText();
  dup2(saved_, descriptor_);
  close(saved_);
  close(file_);
  if (!left.empty()) ADD_FAILURE() << "Output that the test did not expect:\n" << left;
}

std::string OutputCapture::TakeText() {
  std::cout.flush();
  std::string text(static_cast<size_t>(lseek(file_, 0, SEEK_END)), '\0');
  const ssize_t size = pread(file_, text.data(), text.size(), 0);
  text.resize(size > 0 ? static_cast<size_t>(size) : 0);
  if (ftruncate(file_, 0) != 0) ADD_FAILURE() << "The output cannot be cleared.";
  return text;
}

std::vector<std::string> OutputCapture::TakeLines() {
  std::vector<std::string> lines;
  std::istringstream text(TakeText());
  for (std::string line; std::getline(text, line);) lines.push_back(line);
  return lines;
}

LogCapture::LogCapture() : OutputCapture(STDOUT_FILENO) {}

std::vector<std::string> LogCapture::TakeLines() {
  std::vector<std::string> lines = OutputCapture::TakeLines();
  for (std::string& line : lines) {
    const size_t location = line.find(' ');
    const size_t message = line.find(' ', location + 1);
    if (message != std::string::npos) line.erase(location, message - location);
  }
  return lines;
}

std::string LogCapture::TakeLine() {
  const std::vector<std::string> lines = TakeLines();
  EXPECT_EQ(1u, lines.size());
  return lines.empty() ? "" : lines.front();
}

ErrorCapture::ErrorCapture() : OutputCapture(STDERR_FILENO) {}

}  // namespace test
