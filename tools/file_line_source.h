// The lines of a file, a pipe or standard input. A regular file may be followed while it grows.
//
// A followed file that is truncated or replaced is read again from its beginning, and one that does
// not exist is waited for.
//
// Threads: one at a time.
// Errors:  std::runtime_error with the cause, also from the constructor.
#pragma once

#include <sys/stat.h>

#include <string>

#include "tools/line_source.h"

namespace tools {

class FileLineSource final : public ILineSource {
 public:
  // The path "-" is standard input, which ends when its writer closes it.
  FileLineSource(std::string path, bool follows);
  ~FileLineSource() override;
  FileLineSource(const FileLineSource&) = delete;

  Got Next(std::string* line, std::chrono::steady_clock::time_point deadline) override;
  size_t GetLineNumber() const override { return line_number_; }

 private:
  bool Open();
  void Close();
  bool TakeLine(std::string* line);
  void TakeRest(std::string* line);
  size_t Read();
  bool HasMore(std::chrono::steady_clock::time_point deadline) const;
  void Refresh();
  void Restart();
  bool IsReplaced(const struct stat& open_file) const;
  size_t GetRestSize() const { return buffer_.size() - begin_; }

  const std::string path_;
  const bool is_input_;
  const bool follows_;
  int descriptor_ = -1;
  std::string buffer_;
  size_t begin_ = 0;          // The first byte of the buffer that no line has taken.
  size_t scanned_ = 0;        // The buffer has no newline between begin_ and this.
  off_t position_ = 0;        // In the file: the end of the buffer.
  bool is_overlong_ = false;  // The rest of the present line is thrown away.
  size_t line_number_ = 0;
};

}  // namespace tools
