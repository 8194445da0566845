// The tables of the real library, in full: what the entries of the trace call.
//
// Threads: any.
#pragma once

#include "src/tavo_capi.h"

namespace trace {

// An entry is null only if the real library has none, and then no caller sees one of ours.
const TAVORpcClientProcTable& GetClientTable();
const TAVORpcServerProcTable& GetServerTable();
const TAVOIntentManagerProcTable& GetIntentTable();
const TAVOProcTable& GetTopTable();

}  // namespace trace
