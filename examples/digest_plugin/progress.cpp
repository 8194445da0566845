#include "progress.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace digest {
namespace {

constexpr size_t kWidth = 30;
constexpr auto kRedrawEvery = std::chrono::milliseconds(50);

// Where a line can be drawn again.
bool IsTerminal() {
  const char* const kind = std::getenv("TERM");
  return isatty(STDERR_FILENO) && kind && std::string_view(kind) != "dumb";
}

bool WantsColour() {
  const char* const no_colour = std::getenv("NO_COLOR");
  return !no_colour || !*no_colour;
}

}  // namespace

std::string FormatSize(int64_t bytes) {
  constexpr const char* kUnits[] = {"KiB", "MiB", "GiB", "TiB"};
  if (bytes < 1024) return std::to_string(bytes) + " B";
  double size = static_cast<double>(bytes) / 1024;
  size_t unit = 0;
  for (; size >= 1024 && unit + 1 < std::size(kUnits); ++unit) size /= 1024;
  char text[32];
  std::snprintf(text, sizeof text, "%.1f %s", size, kUnits[unit]);
  return text;
}

Progress::Progress(size_t files, int64_t bytes)
    : files_(files), bytes_(bytes), has_terminal_(IsTerminal()), has_colour_(WantsColour()) {}

Progress::~Progress() { Hide(); }

void Progress::Show(size_t files_done, int64_t bytes_done) {
  const auto now = std::chrono::steady_clock::now();
  if (!has_terminal_ || now - drawn_ < kRedrawEvery) return;
  drawn_ = now;
  is_shown_ = true;
  // Files may have grown since they were listed.
  const double share =
      bytes_ > 0 ? std::min(1.0, static_cast<double>(bytes_done) / static_cast<double>(bytes_)) : 1;
  const auto filled = static_cast<size_t>(share * static_cast<double>(kWidth));
  std::fprintf(stderr, "\r\033[K[%s%s%s%s] %3d %%  %zu of %zu files  %s of %s",
               has_colour_ ? "\033[32m" : "", std::string(filled, '#').c_str(),
               has_colour_ ? "\033[0m" : "", std::string(kWidth - filled, '-').c_str(),
               static_cast<int>(share * 100), files_done, files_, FormatSize(bytes_done).c_str(),
               FormatSize(bytes_).c_str());
  std::fflush(stderr);
}

void Progress::ShowFile(const std::string& name, int64_t done, int64_t size) {
  if (has_terminal_ || size <= 0 || done < 0) return;
  const int64_t quarter = std::min(done, size) / ((size + 3) / 4);
  int64_t& told = quarters_[name];
  if (quarter <= told) return;
  told = quarter;
  std::fprintf(stderr, "digest_plugin: %s: %d %% of %s\n", name.c_str(),
               static_cast<int>(quarter * 25), FormatSize(size).c_str());
}

void Progress::Hide() {
  if (!is_shown_) return;
  is_shown_ = false;
  std::fputs("\r\033[K", stderr);
  std::fflush(stderr);
}

}  // namespace digest
