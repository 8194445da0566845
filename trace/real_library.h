// The library in whose place this one lies.
//
// Threads: any.
#pragma once

#include "src/tavo_capi.h"

namespace trace {

// Returns the entry of the real library: of the file that TAVO_TRACE_LIBRARY names, or else of
// libtavo.so.real. Null, after one line on standard error, when there is none.
decltype(&TAVOProcTableLoad) GetRealLoader();

}  // namespace trace
