// Writing without the signals that would end the process: for a reader that is gone (SIGPIPE) and
// for the file-size limit (SIGXFSZ). The signals' dispositions belong to the host and do not
// change.
//
// Threads: any. Errors: an errno.
#pragma once

#include <cstddef>

namespace desk {

// Writes all bytes, and stores in `written` how many were written. Returns 0, or the errno of the
// failure; EPIPE and EFBIG stand for the two signals. A descriptor that does not block is waited
// for as long as its reader reads something within `patience_ms`; otherwise the result is EAGAIN.
int WriteQuietly(int descriptor, const char* data, size_t size, int patience_ms, size_t* written);

}  // namespace desk
