#include "tests/support/failing_new.h"

#include <dlfcn.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <new>

namespace test {
namespace {

std::atomic<long> live{0};
thread_local FailingNew* current = nullptr;

bool IsQt(const void* code) {
  Dl_info info{};
  return dladdr(code, &info) != 0 && std::strstr(info.dli_fname, "/libQt5");
}

void* Allocate(std::size_t size, const void* caller) noexcept {
  if (current && current->Fails(caller)) return nullptr;
  void* const block = std::malloc(size > 0 ? size : 1);
  if (block) ++live;
  return block;
}

}  // namespace

FailingNew::FailingNew(long n, bool for_ever, bool with_qt)
    : left_(n), for_ever_(for_ever), with_qt_(with_qt), outer_(current) {
  current = this;
}
FailingNew::~FailingNew() { current = outer_; }
bool FailingNew::Fails(const void* caller) {
  if (!with_qt_ && IsQt(caller)) return false;
  --left_;
  return left_ == 0 || (left_ < 0 && for_ever_);
}

long FailingNew::CountLive() { return live; }

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
