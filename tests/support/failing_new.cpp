#include "tests/support/failing_new.h"

#include <dlfcn.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <new>

namespace test {
namespace {

std::atomic<long> live{0};

struct Plan {
  bool active = false;
  bool for_ever = false;
  bool with_qt = false;
  long left = 0;  // Allocations up to and including the one that fails; below 1: it has failed.
};
thread_local Plan plan;

bool IsQt(const void* code) {
  Dl_info info{};
  return dladdr(code, &info) != 0 && std::strstr(info.dli_fname, "/libQt5");
}

void* Allocate(std::size_t size, const void* caller) noexcept {
  if (plan.active && (plan.with_qt || !IsQt(caller))) {
    --plan.left;
    if (plan.left == 0 || (plan.left < 0 && plan.for_ever)) return nullptr;
  }
  void* const block = std::malloc(size > 0 ? size : 1);
  if (block) ++live;
  return block;
}

void* AllocateOrThrow(std::size_t size, const void* caller) {
  void* const block = Allocate(size, caller);
  if (!block) throw std::bad_alloc();
  return block;
}

void Free(void* block) noexcept {
  if (block) --live;
  std::free(block);
}

}  // namespace

FailingNew::FailingNew(long n, bool for_ever, bool with_qt) { plan = {true, for_ever, with_qt, n}; }
FailingNew::~FailingNew() { plan.active = false; }
bool FailingNew::HasFailed() const { return plan.left <= 0; }

FailingNew::Pause::Pause() : was_active_(plan.active) { plan.active = false; }
FailingNew::Pause::~Pause() { plan.active = was_active_; }

long FailingNew::CountLive() { return live; }

}  // namespace test

#define CALLER __builtin_return_address(0)

void* operator new(std::size_t size) { return test::AllocateOrThrow(size, CALLER); }
void* operator new[](std::size_t size) { return test::AllocateOrThrow(size, CALLER); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return test::Allocate(size, CALLER);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  return test::Allocate(size, CALLER);
}
void operator delete(void* block) noexcept { test::Free(block); }
void operator delete[](void* block) noexcept { test::Free(block); }
void operator delete(void* block, std::size_t) noexcept { test::Free(block); }
void operator delete[](void* block, std::size_t) noexcept { test::Free(block); }
