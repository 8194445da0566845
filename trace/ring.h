// A bounded record of lines in two files: when FILE holds half of the limit it becomes FILE.1, and
// the older one is begun anew as FILE. One process at a time writes to a ring.
//
// Threads: one at a time.
// Errors:  those of RingFile. After one the ring can only be destroyed.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <memory>
#include <string>
#include <string_view>

#include "trace/ring_file.h"

namespace trace {

class Ring {
 public:
  Ring(std::string path, uint64_t limit);

  // The size of the longest line that a file may hold.
  size_t GetMaxLine() const { return max_line_; }

  // Whether the next line goes into FILE without opening it again: nobody has removed it.
  bool IsIntact() const { return file_->IsIntact(); }

  // Appends the line, which is given in pieces and ends with a newline. A process that is killed
  // then does not lose it.
  void Append(std::initializer_list<std::string_view> line);

 private:
  std::unique_ptr<RingFile> Open(const std::string& path) const;
  void Reopen(std::unique_ptr<RingFile>* file, const std::string& path) const;
  void Turn();

  const std::string path_;
  const std::string older_path_;
  const uint64_t half_;
  const size_t max_line_;
  std::unique_ptr<RingFile> file_;
  std::unique_ptr<RingFile> older_;  // From the start: a process keeps its number of descriptors.
};

}  // namespace trace
