// What a process has occupied of memory so far.
#pragma once

#include <cstdint>
#include <fstream>
#include <sstream>
#include <string>

namespace bench {

// This process's peak, VmHWM, in bytes.
inline int64_t GetPeakMemory() {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    std::istringstream words(line);
    std::string name;
    int64_t kib = 0;
    if (words >> name >> kib && name == "VmHWM:") return kib * 1024;
  }
  return 0;
}

}  // namespace bench
