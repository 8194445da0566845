// The end of exceptions: a fence around callbacks that C code or another component calls, and
// around calls of foreign functions that must not disturb the following statements.
//
//   extern "C" void HandleTimer(void* user_data) {
//     forge::Fence("timer", [&] { static_cast<Timer*>(user_data)->Fire(); });
//   }
//
// Threads: any.
// Errors:  an exception of the body is one error line that names the place and the exception's
//          text.
#pragma once

#include "forge/export.h"

namespace forge {
namespace details {

// Logs the exception that is being handled; to be called inside a catch block. If there is no
// memory for the line, nothing is logged.
FORGE_EXPORT void ReportStrayException(const char* place) noexcept;

}  // namespace details

// Calls `body` and ends its exceptions. `place` is a literal or a text that lives until the call
// returns.
template <typename Body>
void Fence(const char* place, Body&& body) noexcept {
  try {
    body();
  } catch (...) {
    details::ReportStrayException(place);
  }
}

}  // namespace forge
