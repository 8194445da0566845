#include "file_digest.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <vector>

namespace digest {
namespace {

constexpr int64_t kSlice = 1 << 20;
constexpr size_t kBlock = 1 << 16;

std::string TextOf(int error) { return std::generic_category().message(error); }

}  // namespace

std::unique_ptr<FileDigest> FileDigest::Open(const std::string& path, std::string* error) {
  const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
  struct stat status {};
  if (descriptor < 0 || fstat(descriptor, &status) != 0) {
    *error = TextOf(errno);
    if (descriptor >= 0) close(descriptor);
    return nullptr;
  }
  if (S_ISREG(status.st_mode)) {
    return std::unique_ptr<FileDigest>(new FileDigest(descriptor, status.st_size));
  }
  *error = S_ISDIR(status.st_mode) ? TextOf(EISDIR) : "it is not a regular file";
  close(descriptor);
  return nullptr;
}

FileDigest::~FileDigest() { close(descriptor_); }

FileDigest::State FileDigest::ReadSlice(std::string* error) {
  std::vector<char> block(kBlock);
  for (const int64_t end = done_ + kSlice; done_ < end;) {
    const ssize_t size = read(descriptor_, block.data(), block.size());
    if (size == 0) return State::kDone;
    if (size < 0 && errno == EINTR) continue;
    if (size < 0) {
      *error = TextOf(errno);
      return State::kFailed;
    }
    hash_.addData(block.data(), static_cast<int>(size));
    done_ += size;
  }
  return State::kReading;
}

std::string FileDigest::GetHex() const { return hash_.result().toHex().toStdString(); }

}  // namespace digest
