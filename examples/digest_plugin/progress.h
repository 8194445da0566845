// The progress of the work, on standard error. On a terminal it is a bar below the output, as wide
// as there is room; elsewhere it is a line at each quarter of a file whose progress is reported.
//
// Threads: one.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>

namespace digest {

// "1.5 MiB".
std::string FormatSize(int64_t bytes);

// "1 file", "2 files".
std::string FormatCount(size_t count, const std::string& noun);

class Progress {
 public:
  Progress(size_t files, int64_t bytes);
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  void Show(size_t files_done, int64_t bytes_done);
  void ShowFile(const std::string& name, int64_t done, int64_t size);

  // To be called before other output to the terminal; the next Show draws the bar again.
  void Hide();

 private:
  const size_t files_;
  const int64_t bytes_;
  const bool has_terminal_;
  const bool has_colour_;
  bool is_shown_ = false;
  std::chrono::steady_clock::time_point drawn_;
  std::map<std::string, int64_t> quarters_;  // The quarters that were printed, by name.
};

}  // namespace digest
