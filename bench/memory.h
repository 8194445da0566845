// What a process has of memory. The program that links this counts its allocations: those of its
// libraries as well, because malloc, calloc and realloc are replaced in the whole process.
#pragma once

#include <cstdint>

namespace bench {

struct Memory {
  int64_t peak = 0;            // VmHWM, in bytes.
  int64_t private_memory = 0;  // The pages that this process alone has written, in bytes.
  int64_t heap = 0;            // What is allocated, in bytes.
  int64_t allocations = 0;     // How often it was allocated, so far.
};

Memory GetMemory();

}  // namespace bench
