#include "trace/ring.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
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
      file_(std::make_unique<RingFile>(path_, half_)) {}

void Ring::Append(const std::string& line) {
  if (!file_->IsIntact()) {
    file_.reset();
    file_ = std::make_unique<RingFile>(path_, half_);
  }
  if (!file_->HasRoomFor(line.size())) Turn();
  file_->Append(line);
}

// The names are exchanged. A reader may find no FILE for a moment.
void Ring::Turn() {
  if (older_ && !older_->IsIntact()) older_.reset();
  if (!older_ && access(older_path_.c_str(), F_OK) == 0) {
    older_ = std::make_unique<RingFile>(older_path_, half_);
  }
  if (older_) {
    const std::string between = path_ + ".2";
    older_->Clear();
    Rename(older_path_, between);
    Rename(path_, older_path_);
    Rename(between, path_);
  } else {
    Rename(path_, older_path_);
    older_ = std::make_unique<RingFile>(path_, half_);
  }
  std::swap(file_, older_);
}

}  // namespace trace
