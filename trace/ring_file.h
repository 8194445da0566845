// One file of a ring, written in place: a file that grows costs the kernel a new page for every 4
// KiB, several times as much as the copy into a page that is there.
//
// What is not written yet is white space in lines, which readers of records skip. The unused end is
// cut off when the object is destroyed, unless somebody else has changed the file's size; a process
// that is killed leaves it. A file that cannot be mapped has no such pages: it grows by each line.
//
// Threads: one at a time.
// Errors:  std::runtime_error with the cause.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <cstdint>
#include <initializer_list>
#include <stdexcept>
#include <string>
#include <string_view>

namespace trace {

// Another process writes to the file.
class FileInUse : public std::runtime_error {
 public:
  FileInUse() : runtime_error("another process records there; %p in the name is its number") {}
};

class RingFile {
 public:
  // Opens the file, or makes it with mode 0600, and locks it. One that exists must be a regular
  // file of this user that nobody else may open. A symbolic link is not followed. Lines are
  // appended to what is there. Throws FileInUse, too.
  RingFile(const std::string& path, uint64_t max_size);
  ~RingFile();
  RingFile(const RingFile&) = delete;
  RingFile& operator=(const RingFile&) = delete;

  bool HasRoomFor(size_t size) const { return end_ + size <= max_size_; }

  // Whether the open file is as this object has left it. If it is not, somebody has truncated or
  // removed it, or the host has closed the descriptor, and nothing may be written.
  bool IsIntact() const;
  // Whether this is the name of the open file.
  bool IsAt(const std::string& path) const;

  // Writes the pieces, of `size` bytes, at the end; there must be room. They are in the kernel
  // then.
  void Append(std::initializer_list<std::string_view> line, size_t size);

  // Removes all lines. The pages of a mapped file stay.
  void Clear();

 private:
  void AppendWhole(std::initializer_list<std::string_view> line, size_t size);
  void Cut(uint64_t size);
  bool Look(struct stat* status) const;
  void Open(const std::string& path);
  void FindEnd();
  void Grow(uint64_t size);
  void Map();
  void Write(uint64_t at, const char* data, size_t size);

  const uint64_t max_size_;
  const pid_t process_;  // A forked one leaves the file alone.
  int descriptor_ = -1;
  dev_t device_ = 0;
  ino_t inode_ = 0;
  uint64_t size_ = 0;    // Of the file.
  uint64_t end_ = 0;     // Of the lines.
  char* map_ = nullptr;  // Null: the file is too large, or its pages may fail to be written.
};

}  // namespace trace
