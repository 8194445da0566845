#include "trace/ring_file.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "desk/common/quiet_write.h"

namespace trace {
namespace {

constexpr size_t kStep = 64 << 10;      // In bytes: how much a file grows at a time.
constexpr uint64_t kMaxMap = 32 << 20;  // In bytes: a process of 32 bits has few addresses.

[[noreturn]] void FailOn(int error) { throw std::runtime_error(std::strerror(error)); }

// A line of white space, which fills a step.
const std::string& GetBlank() {
  static const auto& blank = *new std::string(std::string(kStep - 1, ' ') + '\n');
  return blank;
}

// Never one of the standard descriptors: a host may run without them, and then print.
int OpenAboveStandard(const char* path) {
  constexpr int kFlags = O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
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

// The lock belongs to the open file: closing another descriptor of the file does not end it.
bool IsLockedByAnother(int descriptor) {
  struct flock lock {};
  lock.l_type = F_WRLCK;
  lock.l_whence = SEEK_SET;
  if (fcntl(descriptor, F_OFD_SETLK, &lock) == 0) return false;
  if (errno == EAGAIN || errno == EACCES) return true;
  FailOn(errno);
}

// Whether a page that is allocated can always be written. Where a copy of the file may share its
// pages a store allocates new ones, and a full disk would end the process by a signal.
bool KeepsItsPages(int descriptor) {
  constexpr long kExt = 0xEF53;
  constexpr long kTmpfs = 0x01021994;
  struct statfs status {};
  if (fstatfs(descriptor, &status) != 0) return false;
  const auto type = static_cast<long>(status.f_type);
  return type == kExt || type == kTmpfs;
}

}  // namespace

RingFile::RingFile(const std::string& path, uint64_t max_size)
    : max_size_(max_size), process_(getpid()) {
  try {
    Open(path);
    FindEnd();
    Map();
    if (!map_) Cut(end_);
  } catch (...) {
    if (descriptor_ >= 0) close(descriptor_);
    throw;
  }
}

RingFile::~RingFile() {
  if (map_) munmap(map_, static_cast<size_t>(max_size_));
  struct stat status {};
  if (!Look(&status)) return;
  // What somebody else has appended stays.
  if (process_ == getpid() && static_cast<uint64_t>(status.st_size) == size_) {
    [[maybe_unused]] const int is_cut = ftruncate(descriptor_, static_cast<off_t>(end_));
  }
  close(descriptor_);
}

bool RingFile::IsIntact() const {
  struct stat status {};
  return Look(&status) && static_cast<uint64_t>(status.st_size) == size_ && status.st_nlink > 0;
}

bool RingFile::IsAt(const std::string& path) const {
  struct stat status {};
  return lstat(path.c_str(), &status) == 0 && status.st_dev == device_ && status.st_ino == inode_;
}

// Returns whether the descriptor is still that of this file.
bool RingFile::Look(struct stat* status) const {
  return fstat(descriptor_, status) == 0 && status->st_dev == device_ && status->st_ino == inode_;
}

void RingFile::Append(std::initializer_list<std::string_view> line, size_t size) {
  if (!map_) return AppendWhole(line, size);
  Grow(end_ + size);
  for (const std::string_view piece : line) {
    std::memcpy(map_ + end_, piece.data(), piece.size());
    end_ += piece.size();
  }
}

// By one call: further ones cost more than the copy, and a process that is killed between them
// leaves a part of a line.
void RingFile::AppendWhole(std::initializer_list<std::string_view> line, size_t size) {
  std::string whole;
  whole.reserve(size);
  for (const std::string_view piece : line) whole.append(piece);
  Write(end_, whole.data(), size);
  end_ += size;
}

void RingFile::Clear() {
  Cut(map_ ? max_size_ : 0);  // The limit may have been higher when the file was written.
  for (uint64_t at = 0; at < size_; at += kStep) {
    const auto size = static_cast<size_t>(std::min<uint64_t>(kStep, size_ - at));
    Write(at, &GetBlank()[kStep - size], size);
  }
  end_ = 0;
}

void RingFile::Open(const std::string& path) {
  descriptor_ = OpenAboveStandard(path.c_str());
  if (descriptor_ < 0 && errno == ELOOP) {
    throw std::runtime_error("it is a symbolic link: name the file itself");
  }
  struct stat status {};
  if (descriptor_ < 0 || fstat(descriptor_, &status) != 0) FailOn(errno);
  if (const char* const fault = FindFault(status)) throw std::runtime_error(fault);
  if (IsLockedByAnother(descriptor_)) throw FileInUse();
  if (fstat(descriptor_, &status) != 0) FailOn(errno);  // The size, now that it stays.
  device_ = status.st_dev;
  inode_ = status.st_ino;
  size_ = static_cast<uint64_t>(status.st_size);
}

// A killed process leaves white space behind its last line, and perhaps a part of a line, which
// stays a line of its own.
void RingFile::FindEnd() {
  std::string block(kStep, '\0');
  for (end_ = size_; end_ > 0;) {
    const auto size = static_cast<size_t>(std::min<uint64_t>(kStep, end_));
    const ssize_t got = pread(descriptor_, block.data(), size, static_cast<off_t>(end_ - size));
    if (got != static_cast<ssize_t>(size)) FailOn(got < 0 ? errno : EIO);
    const size_t last = block.find_last_not_of(" \n", size - 1);
    end_ -= size;
    if (last == std::string::npos) continue;
    end_ += last + 1;
    break;
  }
  if (end_ == 0) return;
  Write(end_++, "\n", 1);
}

void RingFile::Map() {
  if (max_size_ > kMaxMap || !KeepsItsPages(descriptor_)) return;
  void* const map = mmap(nullptr, static_cast<size_t>(max_size_), PROT_READ | PROT_WRITE,
                         MAP_SHARED, descriptor_, 0);
  if (map != MAP_FAILED) map_ = static_cast<char*>(map);
}

void RingFile::Cut(uint64_t size) {
  if (size_ <= size) return;
  if (ftruncate(descriptor_, static_cast<off_t>(size)) != 0) FailOn(errno);
  size_ = size;
}

void RingFile::Grow(uint64_t size) {
  while (size_ < size) {
    const auto step = static_cast<size_t>(std::min<uint64_t>(kStep, max_size_ - size_));
    Write(size_, &GetBlank()[kStep - step], step);
  }
}

// By the kernel, which reports a full disk and the like. A part may have been written then.
void RingFile::Write(uint64_t at, const char* data, size_t size) {
  if (lseek(descriptor_, static_cast<off_t>(at), SEEK_SET) < 0) FailOn(errno);
  size_t written = 0;
  const int error = desk::WriteQuietly(descriptor_, data, size, 0, &written);
  size_ = std::max(size_, at + written);
  if (error) FailOn(error);
}

}  // namespace trace
