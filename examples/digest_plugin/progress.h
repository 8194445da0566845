// How far the work is, on standard error: on a terminal a bar below what is printed, as wide as
// there is room, elsewhere a line at each quarter of a file that its reader reports on.
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

  // Before anything else is written to the terminal; the next Show draws the bar again.
  void Hide();

 private:
  const size_t files_;
  const int64_t bytes_;
  const bool has_terminal_;
  const bool has_colour_;
  bool is_shown_ = false;
  std::chrono::steady_clock::time_point drawn_;
  std::map<std::string, int64_t> quarters_;  // Told already, by name.
};

}  // namespace digest
