#include "trace/ring.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <utility>

#include "desk/common/quiet_write.h"

namespace trace {
namespace {

// Locks of a single byte each, which tell processes something and guard no data. They belong to an
// open file: closing another descriptor of the file does not end them.
enum class Mark : off_t { kTurning = 0, kStarter = 1 };

[[noreturn]] void Fail(const std::string& cause) { throw std::runtime_error(cause); }

[[noreturn]] void FailOn(const char* what, int error) {
  Fail(std::string(what) + std::strerror(error));
}

bool Lock(int descriptor, Mark mark, int command, struct flock* lock) {
  lock->l_whence = SEEK_SET;
  lock->l_start = static_cast<off_t>(mark);
  lock->l_len = 1;
  return fcntl(descriptor, command, lock) == 0;
}

bool Set(int descriptor, Mark mark, short type) {
  struct flock lock {};
  lock.l_type = type;
  return Lock(descriptor, mark, F_OFD_SETLK, &lock);
}

bool IsSetByAnother(int descriptor, Mark mark) {
  struct flock lock {};
  lock.l_type = F_WRLCK;
  return Lock(descriptor, mark, F_OFD_GETLK, &lock) && lock.l_type != F_UNLCK;
}

// Never one of the standard descriptors: a host may run without them, and then print.
int OpenAboveStandard(const char* path) {
  constexpr int kFlags =
      O_RDWR | O_CREAT | O_APPEND | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
  const int descriptor = open(path, kFlags, 0600);
  if (descriptor < 0 || descriptor > STDERR_FILENO) return descriptor;
  const int above = fcntl(descriptor, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  close(descriptor);
  return above;
}

const char* FindFault(const struct stat& status) {
  if (!S_ISREG(status.st_mode)) return "it is no regular file";
  if (status.st_uid != geteuid()) return "another user owns it";
  return (status.st_mode & 066) == 0 ? nullptr : "other users may open it: give it mode 0600";
}

}  // namespace

Ring::Ring(std::string path, uint64_t limit)
    : path_(std::move(path)),
      older_path_(path_ + ".1"),
      half_(limit / 2),
      max_line_(static_cast<size_t>(std::min<uint64_t>(half_, SIZE_MAX / 4))) {
  Open();
}

Ring::~Ring() { close(descriptor_); }

void Ring::Append(const std::string& line) {
  const auto is_full = [&](off_t size) {
    return size > 0 && static_cast<uint64_t>(size) + line.size() > half_;
  };
  off_t size = Look().st_size;
  if (is_full(size)) {
    Turn();
    size = Look().st_size;
  }
  Write(line, size);
}

void Ring::HoldAsStarter() {
  is_starter_ = true;
  Look();
  if (!IsAtPath()) Open();
  Set(descriptor_, Mark::kStarter, F_RDLCK);
}

bool Ring::IsHeldByStarter() {
  Look();
  return IsSetByAnother(descriptor_, Mark::kStarter);
}

void Ring::Open() {
  const int descriptor = OpenAboveStandard(path_.c_str());
  if (descriptor < 0) {
    const int error = errno;
    if (error == ELOOP) Fail("it is a symbolic link: name the file itself");
    FailOn("", error);
  }
  struct stat status {};
  const char* fault = fstat(descriptor, &status) != 0 ? "it cannot be looked at" : nullptr;
  if (!fault) fault = FindFault(status);
  if (fault) {
    close(descriptor);
    Fail(fault);
  }
  if (descriptor_ >= 0) close(descriptor_);
  descriptor_ = descriptor;
  device_ = status.st_dev;
  inode_ = status.st_ino;
  process_ = getpid();
  end_ = -1;
  if (is_starter_) Set(descriptor_, Mark::kStarter, F_RDLCK);
}

// Returns the state of the open file. It is opened again when somebody has removed it, when the
// host has closed the descriptor, which may be another file's by now, and in a forked process,
// whose locks would be its parent's.
struct stat Ring::Look() {
  struct stat status {};
  const bool is_open = fstat(descriptor_, &status) == 0;
  const bool is_ours = is_open && status.st_dev == device_ && status.st_ino == inode_;
  if (is_ours && status.st_nlink > 0 && process_ == getpid()) return status;
  if (!is_ours) descriptor_ = -1;
  Open();
  if (fstat(descriptor_, &status) != 0) FailOn("", errno);
  return status;
}

// Begins a new file. When another process is doing so, nothing happens: its turn ends at once, and
// the next line goes to the new file.
void Ring::Turn() {
  if (!Set(descriptor_, Mark::kTurning, F_WRLCK) && (errno == EAGAIN || errno == EACCES)) return;
  if (IsAtPath() && std::rename(path_.c_str(), older_path_.c_str()) != 0) {
    FailOn("it cannot be renamed: ", errno);
  }
  Open();  // Closes the older file, which ends the lock.
}

bool Ring::IsAtPath() const {
  struct stat status {};
  return lstat(path_.c_str(), &status) == 0 && status.st_dev == device_ && status.st_ino == inode_;
}

bool Ring::EndsWithinALine(off_t size) const {
  char last = '\n';
  return size > 0 && pread(descriptor_, &last, 1, size - 1) == 1 && last != '\n';
}

// What somebody could not finish stays a line of its own. A part of this line is taken back, unless
// another process has appended to it.
void Ring::Write(const std::string& line, off_t size) {
  const std::string separated = size != end_ && EndsWithinALine(size) ? "\n" + line : "";
  const std::string& text = separated.empty() ? line : separated;
  size_t written = 0;
  const int error = desk::WriteQuietly(descriptor_, text.data(), text.size(), 0, &written);
  end_ = size + static_cast<off_t>(written);
  if (error == 0) return;
  struct stat status {};
  if (fstat(descriptor_, &status) == 0 && status.st_size == end_) {
    [[maybe_unused]] const int is_taken_back = ftruncate(descriptor_, size);
  }
  FailOn("", error);
}

}  // namespace trace
