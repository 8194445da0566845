// The heap of a process that exchanges messages.
//
// Threads: any.
#pragma once

namespace desk {

// Lets the process keep up to 16 MiB of freed memory, and take blocks of up to 8 MiB from it. glibc
// would otherwise return the memory of each long message to the kernel, and get it back page by
// page, until the process happens to free a large block. Limits that the environment or the host
// has set stay.
void PrimeHeap();

}  // namespace desk
