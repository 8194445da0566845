#include "trace/report.h"

#include <unistd.h>

#include <exception>
#include <string>

#include "desk/common/quiet_write.h"

namespace trace {

void Report(std::string_view text, std::string_view more) noexcept {
  try {
    std::string line = "tavo-trace: ";
    line.append(text).append(more).append(1, '\n');
    size_t written = 0;
    desk::WriteQuietly(STDERR_FILENO, line.data(), line.size(), 0, &written);
  } catch (const std::exception&) {  // There is no memory for the line.
  }
}

}  // namespace trace
