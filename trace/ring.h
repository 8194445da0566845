// A bounded file of lines: when FILE holds half of the limit it becomes FILE.1, in the place of the
// one before, and a new FILE is begun. Several processes may write to the same ring.
//
// A line is in the kernel when Append returns, so a process that is killed loses none.
//
// Threads: one at a time.
// Errors:  std::runtime_error with the cause.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <cstdint>
#include <string>

namespace trace {

class Ring {
 public:
  // Opens the file, or makes it with mode 0600. One that exists must be a regular file of this user
  // that nobody else may open. A symbolic link is not followed.
  Ring(std::string path, uint64_t limit);
  ~Ring();
  Ring(const Ring&) = delete;
  Ring& operator=(const Ring&) = delete;

  const std::string& GetPath() const { return path_; }

  // The size of the longest line that a file may hold.
  size_t GetMaxLine() const { return max_line_; }

  // Appends the line, which ends with a newline.
  void Append(const std::string& line);

  // Marks the ring as that of a process that starts tasks, until this object is destroyed.
  void HoldAsStarter();
  // Whether another process has marked it.
  bool IsHeldByStarter();

 private:
  void Open();
  struct stat Look();
  void Turn();
  bool IsAtPath() const;
  bool EndsWithinALine(off_t size) const;
  void Write(const std::string& line, off_t size);

  const std::string path_;
  const std::string older_path_;
  const uint64_t half_;
  const size_t max_line_;
  int descriptor_ = -1;
  dev_t device_ = 0;  // Of the open file.
  ino_t inode_ = 0;
  pid_t process_ = 0;  // That has opened the file.
  off_t end_ = -1;     // Of the last line that was written here; -1: none in this file.
  bool is_starter_ = false;
};

}  // namespace trace
