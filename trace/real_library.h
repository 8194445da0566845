// The library in whose place this one lies.
//
// Threads: any.
#pragma once

#include "src/tavo_capi.h"

namespace trace {

// Returns the entry of the real library: of the file that TAVO_TRACE_LIBRARY names, or else of
// libtavo.so.real, without which this library is not even loaded. Null, after one line on standard
// error, when the file cannot be loaded, has no such entry, or is the trace itself.
decltype(&TAVOProcTableLoad) GetRealLoader();

}  // namespace trace
