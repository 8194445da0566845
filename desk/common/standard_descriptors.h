// The three standard descriptors of a program.
#pragma once

#include <fcntl.h>
#include <unistd.h>

namespace desk {

// Opens those that the program was started without: the next file that is opened would become one
// of them otherwise, and output would go there. Call it first in main.
inline void OpenStandardDescriptors() {
  for (int number = STDIN_FILENO; number <= STDERR_FILENO; ++number) {
    if (fcntl(number, F_GETFD) == -1) open("/dev/null", O_RDWR);  // The lowest that is free.
  }
}

}  // namespace desk
