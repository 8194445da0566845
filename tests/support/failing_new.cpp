#include "tests/support/failing_new.h"

#include <dlfcn.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <new>

namespace test {

static std::atomic<long> live{0};
static thread_local FailingNew* current = nullptr;

FailingNew::FailingNew(long n, bool for_ever) : left_(n), for_ever_(for_ever) { current = this; }
FailingNew::~FailingNew() { current = nullptr; }
bool FailingNew::Fails(const void* caller) {
  Dl_info info{};
  if (dladdr(caller, &info) != 0 && std::strstr(info.dli_fname, "/libQt5")) return false;
  --left_;
  return left_ == 0 || (left_ < 0 && for_ever_);
}

long FailingNew::CountLive() { return live; }

static void* Allocate(std::size_t size, const void* caller) noexcept {
  if (current && current->Fails(caller)) return nullptr;
  void* const block = std::malloc(size > 0 ? size : 1);
  if (block) ++live;
  return block;
}

}  // namespace test

void* operator new(std::size_t size) {
  void* const block = test::Allocate(size, __builtin_return_address(0));
  return block ? block : throw std::bad_alloc();
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return test::Allocate(size, __builtin_return_address(0));
}
void operator delete(void* block) noexcept {
  if (block) --test::live;
  std::free(block);
}
void operator delete(void* block, std::size_t) noexcept { operator delete(block); }
