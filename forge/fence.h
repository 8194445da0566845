// Where exceptions end: callbacks that C code or another component calls, and calls of foreign
// functions that must not disturb what follows.
//
// Threads: any.
// Errors:  a stray exception is one error line that names the place.
#pragma once

#include "forge/export.h"

namespace forge {
namespace details {

// Logs the exception that is being handled.
FORGE_EXPORT void ReportStrayException(const char* place) noexcept;

}  // namespace details

template <typename Body>
void Fence(const char* place, Body&& body) noexcept {
  try {
    body();
  } catch (...) {
    details::ReportStrayException(place);
  }
}

}  // namespace forge
