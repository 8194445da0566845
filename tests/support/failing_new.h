// Allocations that fail when a test says so. The program that links this has its operator new
// replaced; what is allocated otherwise (malloc: the C library, Qt's strings) is not affected.
#pragma once

#include <climits>

namespace test {

// While it lives, the n-th allocation of this thread throws std::bad_alloc, and with `for_ever`
// every later one, too. Those that Qt itself makes count only with `with_qt`: where they fail Qt
// does not always clean up. Within another one it stands in for that: by default nothing fails,
// for the test's own code in a callback.
class FailingNew {
 public:
  explicit FailingNew(long n = LONG_MAX, bool for_ever = false, bool with_qt = false);
  ~FailingNew();
  FailingNew(const FailingNew&) = delete;

  bool HasFailed() const { return left_ <= 0; }  // Was there an n-th?

  // The blocks of the process that were allocated and not freed yet.
  static long CountLive();

  bool Fails(const void* caller);  // For operator new: counts an allocation.

 private:
  long left_;  // Allocations up to and including the one that fails.
  const bool for_ever_;
  const bool with_qt_;
  FailingNew* const outer_;
};

}  // namespace test
