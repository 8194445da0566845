// Allocations that fail when a test says so. The program that links this has its operator new
// replaced; what is allocated otherwise (malloc: the C library, Qt's strings) is not affected.
#pragma once

namespace test {

// While it lives, the n-th allocation of this thread throws std::bad_alloc, and with `for_ever`
// every later one, too. Those that Qt itself makes succeed: where they fail Qt does not always
// clean up. There is one at a time.
class FailingNew {
 public:
  FailingNew(long n, bool for_ever);
  ~FailingNew();
  FailingNew(const FailingNew&) = delete;

  bool HasFailed() const { return left_ <= 0; }  // Was there an n-th?

  // The blocks of the process that were allocated and not freed yet.
  static long CountLive();

  bool Fails(const void* caller);  // For operator new: counts an allocation.

 private:
  long left_;  // Allocations up to and including the one that fails.
  const bool for_ever_;
};

}  // namespace test
