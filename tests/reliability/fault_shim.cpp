#include "tests/reliability/fault_shim.h"

#include <dlfcn.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

// Constant at the start and never destroyed: calls come before and after main, too.
struct {
  int error;
  unsigned one_in;
  long bytes;
  char calls[128];  // Empty: nothing fails.
} plan;
std::atomic<uint64_t> random_state;
std::atomic<long> faults;

bool IsDue(const char* name) {
  if (!std::strstr(plan.calls, name)) return false;
  const uint64_t state = random_state.fetch_add(1) * 0x9E3779B97F4A7C15u;  // A Weyl sequence,
  const uint64_t mixed = (state ^ (state >> 29)) * 0xBF58476D1CE4E5B9u;    // mixed.
  if ((mixed >> 32) % plan.one_in != 0) return false;
  ++faults;
  return true;
}

bool IsPipe(long descriptor) {
  struct stat status {};
  return descriptor > STDERR_FILENO && fstat(static_cast<int>(descriptor), &status) == 0 &&
         S_ISFIFO(status.st_mode);
}

// Each of the calls takes at most four words; where data is moved, the third one is its size.
using Call = long (*)(long, long, long, long);

long Fail(Call call, long a, long b, long size, long d) {
  if (plan.error > 0) {
    errno = plan.error;
    return -1;
  }
  if (plan.error == test::kOneByte) return call(a, b, std::min(size, 1L), d);
  if (size >= plan.bytes) {
    call(a, b, plan.bytes, d);
    std::raise(SIGKILL);
  }
  const long sent = call(a, b, size, d);
  plan.bytes -= std::max(sent, 0L);
  return sent;
}

[[gnu::constructor]] void BeginIfPlanned() {
  if (std::getenv("TAVO_FAULT")) TAVOFaultBegin();
}

}  // namespace

#pragma GCC visibility push(default)

void TAVOFaultBegin() {
  unsigned long seed = 0;
  std::sscanf(std::getenv("TAVO_FAULT"), "%d %u %lu %ld%127[^\n]", &plan.error, &plan.one_in, &seed,
              &plan.bytes, plan.calls);
  random_state = uint64_t{seed} << 32;
}

long TAVOFaultEnd() {
  plan = {};
  return faults.exchange(0);
}

// Its C++ name differs from that of the C library's function, which the headers declare.
#define FAILING(name, may_fail)                                                          \
  long Call_##name(long a, long b, long c, long d) asm(#name);                           \
  long Call_##name(long a, long b, long c, long d) {                                     \
    static const auto call = reinterpret_cast<Call>(dlsym(RTLD_NEXT, #name));            \
    return may_fail && IsDue(" " #name " ") ? Fail(call, a, b, c, d) : call(a, b, c, d); \
  }

FAILING(_Fork, true)
FAILING(accept4, true)
FAILING(bind, true)
FAILING(connect, true)
FAILING(execve, true)
FAILING(mkdir, true)
FAILING(pipe2, true)
FAILING(read, IsPipe(a))
FAILING(recv, true)
FAILING(send, true)
FAILING(socket, true)
FAILING(socketpair, true)
FAILING(write, IsPipe(a))

#pragma GCC visibility pop
