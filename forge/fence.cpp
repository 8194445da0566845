#include "forge/fence.h"

#include <exception>
#include <string>

#include "forge/logger.h"

namespace forge::details {
namespace {

std::string DescribeCurrentException() {
  try {
    throw;
  } catch (const std::exception& exception) {
    return exception.what();
  } catch (...) {
    return "not a standard exception";
  }
}

}  // namespace

void ReportStrayException(const char* place) noexcept {
  try {
    FORGE_LOG(kError) << "Stray exception in " << place << ": " << DescribeCurrentException();
  } catch (...) {  // There is no memory for the log line; the exception still ends here.
  }
}

}  // namespace forge::details
