#include "tools/file_line_source.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <utility>

namespace tools {
namespace {

using Clock = std::chrono::steady_clock;

constexpr size_t kChunk = 65536;
constexpr std::chrono::milliseconds kPause{50};  // Between two looks at a file that is followed.

// The time until the deadline, as poll takes it, rounded up.
int MillisecondsUntil(Clock::time_point deadline, std::chrono::milliseconds most) {
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
  return static_cast<int>(std::clamp(left, std::chrono::milliseconds(0), most).count());
}

[[noreturn]] void Fail() { throw std::runtime_error(std::strerror(errno)); }

}  // namespace

FileLineSource::FileLineSource(std::string path, bool follows)
    : path_(std::move(path)), is_input_(path_ == "-"), follows_(follows && !is_input_) {
  if (!Open() && !(follows_ && errno == ENOENT)) Fail();
}

FileLineSource::~FileLineSource() { Close(); }

// Returns false, with errno. A followed pipe does not make the caller wait for its writer.
bool FileLineSource::Open() {
  const int flags = O_RDONLY | O_CLOEXEC | O_NOCTTY | (follows_ ? O_NONBLOCK : 0);
  descriptor_ = is_input_ ? STDIN_FILENO : open(path_.c_str(), flags);
  return descriptor_ >= 0;
}

void FileLineSource::Close() {
  if (descriptor_ >= 0 && !is_input_) close(descriptor_);
  descriptor_ = -1;
}

ILineSource::Got FileLineSource::Next(std::string* line, Clock::time_point deadline) {
  while (!TakeLine(line)) {
    if (descriptor_ >= 0) {
      if (!HasMore(deadline)) return Got::kNothing;
      if (Read() > 0) continue;
    }
    if (!follows_) {
      TakeRest(line);
      return line->empty() ? Got::kEnd : Got::kLine;
    }
    const int pause = MillisecondsUntil(deadline, kPause);
    if (pause == 0 || poll(nullptr, 0, pause) != 0) return Got::kNothing;
    Refresh();
  }
  return Got::kLine;
}

// Returns whether the next read does not wait.
bool FileLineSource::HasMore(Clock::time_point deadline) const {
  pollfd input{descriptor_, POLLIN, 0};
  constexpr std::chrono::hours kLongest{1};
  return poll(&input, 1, MillisecondsUntil(deadline, kLongest)) > 0;
}

// Returns how many bytes came; 0 at the end.
size_t FileLineSource::Read() {
  buffer_.erase(0, begin_);
  scanned_ -= begin_;
  begin_ = 0;
  const size_t size = buffer_.size();
  buffer_.resize(size + kChunk);
  const ssize_t got = read(descriptor_, &buffer_[size], kChunk);
  const int error = errno;
  buffer_.resize(size + static_cast<size_t>(std::max<ssize_t>(got, 0)));
  errno = error;
  if (got < 0 && errno != EINTR && errno != EAGAIN) Fail();
  position_ += std::max<ssize_t>(got, 0);
  return buffer_.size() - size;
}

bool FileLineSource::TakeLine(std::string* line) {
  while (true) {
    const size_t end = buffer_.find('\n', scanned_);
    const bool is_complete = end != std::string::npos;
    scanned_ = std::min(end, buffer_.size());
    if (!is_complete && !is_overlong_ && GetRestSize() <= kMaxLine) return false;
    const bool is_rest = std::exchange(is_overlong_, !is_complete);
    if (!is_rest) line->assign(buffer_, begin_, std::min(scanned_ - begin_, kMaxLine + 1));
    begin_ = scanned_ += is_complete ? 1 : 0;
    if (!is_rest) ++line_number_;
    if (!is_rest || !is_complete) return !is_rest;
  }
}

// The last line may have no newline.
void FileLineSource::TakeRest(std::string* line) {
  line->assign(buffer_, begin_);
  begin_ = scanned_ = buffer_.size();
  if (std::exchange(is_overlong_, false)) line->clear();
  if (!line->empty()) ++line_number_;
}

bool FileLineSource::IsReplaced(const struct stat& open_file) const {
  struct stat named {};
  return stat(path_.c_str(), &named) == 0 &&
         (named.st_ino != open_file.st_ino || named.st_dev != open_file.st_dev);
}

// Looks at the end of a followed file whether the file is still the same.
void FileLineSource::Refresh() {
  struct stat status {};
  if (descriptor_ < 0) {
    if (!Open() && errno != ENOENT) Fail();
  } else if (fstat(descriptor_, &status) != 0 || IsReplaced(status)) {
    if (Read() > 0) return;  // What was written to the old file before it was replaced.
    Close();
    Restart();
    if (!Open() && errno != ENOENT) Fail();
  } else if (S_ISREG(status.st_mode) && status.st_size < position_) {
    // A writer takes a line back that it could not finish: the lines before that line stay.
    const off_t taken = position_ - static_cast<off_t>(GetRestSize());
    const bool is_same = status.st_size >= taken && !is_overlong_;
    const size_t number = line_number_;
    Restart();
    if (is_same) line_number_ = number;
    position_ = lseek(descriptor_, is_same ? taken : 0, SEEK_SET);
  }
}

// Forgets what was read of the file.
void FileLineSource::Restart() {
  buffer_.clear();
  begin_ = scanned_ = line_number_ = 0;
  position_ = 0;
  is_overlong_ = false;
}

}  // namespace tools
