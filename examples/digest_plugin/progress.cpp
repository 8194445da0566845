#include "progress.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace digest {
namespace {

constexpr size_t kWidth = 30;
constexpr auto kRedrawEvery = std::chrono::milliseconds(50);

// Returns whether a line can be redrawn.
bool IsTerminal() {
  const char* const kind = std::getenv("TERM");
  return isatty(STDERR_FILENO) && kind && std::string_view(kind) != "dumb";
}

size_t TerminalWidth() {
  constexpr size_t kUsual = 80;
  winsize size{};
  return ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : kUsual;
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

std::string FormatCount(size_t count, const std::string& noun) {
  return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
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
  char percent[8];
  std::snprintf(percent, sizeof percent, "%3d %%", static_cast<int>(share * 100));
  std::string line = "[" + std::string(filled, '#') + std::string(kWidth - filled, '-') + "] " +
                     percent + "  " + std::to_string(files_done) + " of " +
                     FormatCount(files_, "file") + "  " + FormatSize(bytes_done) + " of " +
                     FormatSize(bytes_);
  line.resize(std::min(line.size(), TerminalWidth() - 1));  // A full line may wrap.
  if (has_colour_) {
    line.insert(std::min(line.size(), 1 + filled), "\033[0m");
    line.insert(std::min<size_t>(line.size(), 1), "\033[32m");
  }
  std::fprintf(stderr, "\r\033[K%s", line.c_str());
  std::fflush(stderr);
}

void Progress::ShowFile(const std::string& name, int64_t done, int64_t size) {
  if (has_terminal_ || size <= 0 || done < 0) return;
  const double share = static_cast<double>(std::min(done, size)) / static_cast<double>(size);
  const auto quarter = static_cast<int64_t>(share * 4);
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
