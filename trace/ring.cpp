#include "trace/ring.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <utility>

namespace trace {

Ring::Ring(std::string path, uint64_t limit)
    : path_(std::move(path)),
      older_path_(path_ + ".1"),
      half_(limit / 2),
      max_line_(static_cast<size_t>(std::min<uint64_t>(half_, SIZE_MAX / 4))),
      file_(Open(path_)),
      older_(Open(older_path_)) {}

std::unique_ptr<RingFile> Ring::Open(const std::string& path) const {
  return std::make_unique<RingFile>(path, half_);
}

void Ring::Reopen(std::unique_ptr<RingFile>* file, const std::string& path) const {
  file->reset();  // Ends its lock.
  *file = Open(path);
}

void Ring::Append(std::initializer_list<std::string_view> line) {
  size_t size = 0;
  for (const std::string_view piece : line) size += piece.size();
  if (!file_->IsIntact()) Reopen(&file_, path_);
  // The first turn may find another file at the name, which is full, too.
  for (int turns = 0; turns < 2 && !file_->HasRoomFor(size); ++turns) Turn();
  if (!file_->HasRoomFor(size)) throw std::runtime_error("it is full");
  file_->Append(line, size);
}

// The names are exchanged, so both files keep their pages. Where the kernel or the file system
// cannot do that the older file goes, and a reader may find no FILE for a moment. What somebody has
// moved away is left alone.
void Ring::Turn() {
  if (!file_->IsAt(path_)) return Reopen(&file_, path_);
  if (!older_->IsIntact() || !older_->IsAt(older_path_)) Reopen(&older_, older_path_);
  older_->Clear();
  const char* const name = path_.c_str();
  const char* const older_name = older_path_.c_str();
  if (renameat2(AT_FDCWD, name, AT_FDCWD, older_name, RENAME_EXCHANGE) == 0) {
    return std::swap(file_, older_);
  }
  if (std::rename(name, older_name) != 0) {
    throw std::runtime_error("it cannot be renamed: " + std::string(std::strerror(errno)));
  }
  older_ = std::move(file_);
  file_ = Open(path_);
}

}  // namespace trace
