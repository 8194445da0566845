#include "tests/reliability/fault_shim.h"

#include <dlfcn.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>

namespace {

using test::Fault;

enum Call {
  kAccept,
  kBind,
  kConnect,
  kExec,
  kFork,
  kMkdir,
  kPipe,
  kRead,
  kRecv,
  kSend,
  kSocket,
  kSocketpair,
  kWrite,
  kCalls
};
constexpr const char* kNames[kCalls] = {"accept4", "bind",       "connect", "execve", "_Fork",
                                        "mkdir",   "pipe2",      "read",    "recv",   "send",
                                        "socket",  "socketpair", "write"};

struct {
  int error = 0;
  unsigned one_in = 0;  // 0: nothing fails.
  long after = 0;
  bool fails[kCalls] = {};
} plan;
std::atomic<uint64_t> random_state{0};
std::atomic<long> faults{0};
std::atomic<long> sent{0};

// The function behind ours. All are found before anything forks.
void* GetReal(Call call) {
  static void* const* const functions = [] {
    static void* found[kCalls];
    for (int i = 0; i < kCalls; ++i) found[i] = dlsym(RTLD_NEXT, kNames[i]);
    return found;
  }();
  return functions[call];
}

template <typename Function, typename... Arguments>
auto CallReal(Call call, Function*, Arguments... arguments) {
  return reinterpret_cast<Function*>(GetReal(call))(arguments...);
}

bool IsDue(Call call) {
  if (plan.one_in == 0 || !plan.fails[call]) return false;
  const uint64_t state = random_state.fetch_add(1) * 0x9E3779B97F4A7C15u;  // A Weyl sequence,
  const uint64_t mixed = (state ^ (state >> 29)) * 0xBF58476D1CE4E5B9u;    // mixed.
  if ((mixed >> 32) % plan.one_in != 0) return false;
  ++faults;
  return true;
}

// True, with errno, when the call is to fail.
bool Fails(Call call) {
  if (plan.error <= 0 || !IsDue(call)) return false;
  errno = plan.error;
  return true;
}

size_t Shorten(Call call, size_t size) {
  return plan.error == Fault::kShort && size > 1 && IsDue(call) ? 1 : size;
}

bool IsPipe(int descriptor) {
  struct stat status {};
  return plan.one_in != 0 && descriptor > STDERR_FILENO && fstat(descriptor, &status) == 0 &&
         S_ISFIFO(status.st_mode);
}

[[gnu::constructor]] void Begin() {
  GetReal(kRead);
  TAVOFaultSetPlan(std::getenv("TAVO_FAULT"));
}

}  // namespace

extern "C" {

[[gnu::visibility("default")]] void TAVOFaultSetPlan(const char* text) {
  plan = {};
  faults = 0;
  sent = 0;
  if (!text) return;
  char* rest = nullptr;
  plan.error = static_cast<int>(std::strtol(text, &rest, 10));
  const auto one_in = static_cast<unsigned>(std::strtoul(rest, &rest, 10));
  random_state = std::strtoull(rest, &rest, 10) << 32;
  plan.after = std::strtol(rest, &rest, 10);
  const std::string calls = std::string(rest) + ' ';
  for (int i = 0; i < kCalls; ++i) {
    plan.fails[i] = calls.find(std::string(" ") + kNames[i] + ' ') != std::string::npos;
  }
  plan.one_in = one_in;
}

[[gnu::visibility("default")]] long TAVOFaultCount() { return faults; }

#pragma GCC visibility push(default)

int accept4(int descriptor, sockaddr* address, socklen_t* size, int flags) {
  if (Fails(kAccept)) return -1;
  return CallReal(kAccept, accept4, descriptor, address, size, flags);
}

int bind(int descriptor, const sockaddr* address, socklen_t size) noexcept {
  if (Fails(kBind)) return -1;
  return CallReal(kBind, bind, descriptor, address, size);
}

int connect(int descriptor, const sockaddr* address, socklen_t size) {
  if (Fails(kConnect)) return -1;
  return CallReal(kConnect, connect, descriptor, address, size);
}

int execve(const char* path, char* const* arguments, char* const* environment) noexcept {
  if (Fails(kExec)) return -1;
  return CallReal(kExec, execve, path, arguments, environment);
}

pid_t _Fork() noexcept {
  if (Fails(kFork)) return -1;
  return CallReal(kFork, _Fork);
}

int mkdir(const char* path, mode_t mode) noexcept {
  if (Fails(kMkdir)) return -1;
  return CallReal(kMkdir, mkdir, path, mode);
}

int pipe2(int* ends, int flags) noexcept {
  if (Fails(kPipe)) return -1;
  return CallReal(kPipe, pipe2, ends, flags);
}

ssize_t read(int descriptor, void* data, size_t size) {
  if (!IsPipe(descriptor)) return CallReal(kRead, read, descriptor, data, size);
  if (Fails(kRead)) return -1;
  return CallReal(kRead, read, descriptor, data, Shorten(kRead, size));
}

ssize_t write(int descriptor, const void* data, size_t size) {
  if (!IsPipe(descriptor)) return CallReal(kWrite, write, descriptor, data, size);
  if (Fails(kWrite)) return -1;
  return CallReal(kWrite, write, descriptor, data, Shorten(kWrite, size));
}

ssize_t recv(int descriptor, void* data, size_t size, int flags) {
  if (Fails(kRecv)) return -1;
  return CallReal(kRecv, recv, descriptor, data, Shorten(kRecv, size), flags);
}

ssize_t send(int descriptor, const void* data, size_t size, int flags) {
  if (Fails(kSend)) return -1;
  const bool dies = plan.error == Fault::kKill && plan.one_in != 0;
  if (dies && sent + static_cast<long>(size) >= plan.after) {
    CallReal(kSend, send, descriptor, data, static_cast<size_t>(plan.after - sent), flags);
    std::raise(SIGKILL);
  }
  const ssize_t result = CallReal(kSend, send, descriptor, data, Shorten(kSend, size), flags);
  if (result > 0) sent += result;
  return result;
}

int socket(int domain, int type, int protocol) noexcept {
  if (Fails(kSocket)) return -1;
  return CallReal(kSocket, socket, domain, type, protocol);
}

int socketpair(int domain, int type, int protocol, int* ends) noexcept {
  if (Fails(kSocketpair)) return -1;
  return CallReal(kSocketpair, socketpair, domain, type, protocol, ends);
}

#pragma GCC visibility pop

}  // extern "C"
