// Allocations that fail when a test says so. The program that links this has its operator new
// replaced; what is allocated otherwise (malloc: the C library, Qt's strings) is not affected.
#pragma once

namespace test {

// While it lives, the n-th allocation of this thread throws std::bad_alloc, and with `for_ever`
// every later one, too. Those that Qt itself makes count only with `with_qt`: where they fail Qt
// does not always clean up.
class FailingNew {
 public:
  FailingNew(long n, bool for_ever, bool with_qt);
  ~FailingNew();
  FailingNew(const FailingNew&) = delete;
  FailingNew& operator=(const FailingNew&) = delete;

  bool HasFailed() const;  // Was there an n-th?

  // Within, allocations succeed and are not counted: for the test's own code in a callback.
  class Pause {
   public:
    Pause();
    ~Pause();
    Pause(const Pause&) = delete;
    Pause& operator=(const Pause&) = delete;

   private:
    const bool was_active_;
  };

  // The blocks of the process that were allocated and not freed yet.
  static long CountLive();
};

}  // namespace test
