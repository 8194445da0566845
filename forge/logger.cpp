#include "forge/logger.h"

#include <unistd.h>

#include <cstdlib>
#include <iostream>
#include <string>

namespace forge::logger::details {
namespace {

struct Tag {
  const char* colour;
  const char* text;
};

constexpr Tag kTags[] = {
    {"\x1b[1;32m", "[info]"},
    {"\x1b[1;33m", "[warn]"},
    {"\x1b[1;31m", "[error]"},
    {"\x1b[1;31m", "[fatal]"},
};
constexpr char kLocationColour[] = "\x1b[90m";
constexpr char kReset[] = "\x1b[0m";

// Checked for each sequence, because standard output may be redirected while the process runs.
std::string Sequence(const char* sequence) { return isatty(STDOUT_FILENO) ? sequence : ""; }

std::string Coloured(const char* colour, std::string_view text) {
  std::string piece = Sequence(colour);
  piece += std::string(text);  // Throws for a null text with a length.
  piece += Sequence(kReset);
  return piece;
}

}  // namespace

Printer::Printer(LogLevel level, std::string_view location) : stream_(&std::cout), level_(level) {
  const ErrnoGuard guard;  // isatty sets it.
  const auto index = static_cast<std::size_t>(level);
  if (index < std::size(kTags)) *stream_ << Coloured(kTags[index].colour, kTags[index].text);
  if (!location.empty()) *stream_ << Coloured(kLocationColour, location);
}

Printer::~Printer() {
  const ErrnoGuard guard;
  stream_->put(stream_->widen('\n'));
  stream_->flush();
  if (level_ == LogLevel::kFatal) std::abort();
}

}  // namespace forge::logger::details
