// Reads the entries of a record and reports what is damaged, for the subcommands that show records.
//
// Threads: one at a time.
#pragma once

#include <chrono>
#include <cstddef>
#include <memory>
#include <string>

#include "tools/line_source.h"
#include "tools/records.h"

namespace tools {

// Opens the file, or standard input for "-". Throws CommandError.
std::unique_ptr<ILineSource> OpenRecord(const std::string& file, bool follows);

class RecordReader {
 public:
  // Reports are lines "COMMAND: FILE:LINE: cause" on standard error, after what was printed.
  RecordReader(std::string command, std::string file, std::unique_ptr<ILineSource> source);

  // Stores the next entry. kNothing also for a line that holds none. Throws CommandError when the
  // source fails.
  ILineSource::Got Next(Entry* entry, std::chrono::steady_clock::time_point deadline);

  // Throws CommandError if a line was damaged.
  void ThrowIfDamaged() const;

 private:
  void Report(const char* cause);

  const std::string command_;
  const std::string file_;
  const std::unique_ptr<ILineSource> source_;
  size_t damaged_ = 0;  // Lines.
};

}  // namespace tools
