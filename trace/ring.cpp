#include "trace/ring.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <utility>

namespace trace {
namespace {

void Rename(const std::string& from, const std::string& to) {
  if (std::rename(from.c_str(), to.c_str()) == 0) return;
  throw std::runtime_error("it cannot be renamed: " + std::string(std::strerror(errno)));
}

}  // namespace

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
  if (!file_->HasRoomFor(size)) Turn();
  if (!file_->HasRoomFor(size)) throw std::runtime_error("it is full");
  file_->Append(line, size);
}

// The names are exchanged. A reader may find no FILE for a moment. What somebody has moved away is
// left alone.
void Ring::Turn() {
  if (!file_->IsAt(path_)) return Reopen(&file_, path_);
  if (!older_->IsIntact() || !older_->IsAt(older_path_)) Reopen(&older_, older_path_);
  older_->Clear();
  const std::string between = path_ + ".2";
  Rename(older_path_, between);
  Rename(path_, older_path_);
  Rename(between, path_);
  std::swap(file_, older_);
}

}  // namespace trace
