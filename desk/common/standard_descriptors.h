// The three standard descriptors of a program.
#pragma once

#include <fcntl.h>
#include <unistd.h>

namespace desk {

// Opens the descriptors that the program was started without. Otherwise the next file that is
// opened would become one of them, and output would go there. To be called first in main.
inline void OpenStandardDescriptors() {
  for (int number = STDIN_FILENO; number <= STDERR_FILENO; ++number) {
    if (fcntl(number, F_GETFD) == -1) open("/dev/null", O_RDWR);  // The lowest that is free.
  }
}

}  // namespace desk
