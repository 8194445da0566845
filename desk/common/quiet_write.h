// Writing where a signal would end the process: a reader that is gone (SIGPIPE), the file-size
// limit (SIGXFSZ). The signals' dispositions are the host's and stay as they are.
//
// Threads: any. Errors: an errno.
#pragma once

#include <cstddef>

namespace desk {

// Writes all, and puts into `written` how much that was. 0, or the errno of what failed: EPIPE and
// EFBIG are those of the signals. A descriptor that does not block is waited for as long as its
// reader reads on within `patience_ms`; EAGAIN tells that it does not.
int WriteQuietly(int descriptor, const char* data, size_t size, int patience_ms, size_t* written);

}  // namespace desk
