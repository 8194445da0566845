#include "tests/support/test_base.h"

#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <thread>

#include "tests/support/deadline.h"
#include "tests/support/scale.h"

namespace test {

static int CountEntries(const char* folder) {
  const std::filesystem::directory_iterator entries(folder);
  return static_cast<int>(std::distance(entries, {}));
}

void TestBase::SetUp() {
  signal(SIGALRM, [](int) {
    constexpr char kText[] = "The test takes too long.\n";
    _exit(write(fileno(stdout), kText, sizeof kText - 1) > 0 ? 1 : 2);
  });
  alarm(static_cast<unsigned>(5 * kDeadline.count() * GetScale()));
  // A sanitizer's or an emulator's own thread starts with the first one. One that was joined may
  // be listed a moment longer.
  std::string joined = "/proc/self/task/";
  std::thread([&joined] { joined += std::to_string(gettid()); }).join();
  EXPECT_TRUE(WaitUntil([&joined] { return !std::filesystem::exists(joined); }));
  descriptors_ = CountDescriptors();
  threads_ = CountThreads();
}

void TestBase::TearDown() {
  // What is to be deleted later, or ends with another process, closes its own in time.
  EXPECT_TRUE(WaitUntil([this] { return CountDescriptors() == descriptors_; }))
      << "There were " << descriptors_ << " descriptors, now there are " << CountDescriptors();
  EXPECT_TRUE(WaitUntil([this] { return CountThreads() <= threads_; })) << "A thread is left.";
  EXPECT_FALSE(HasChildren()) << "A child process is left.";
  alarm(0);
}

int TestBase::CountDescriptors() { return CountEntries("/proc/self/fd"); }

int TestBase::CountThreads() { return CountEntries("/proc/self/task"); }

bool TestBase::HasChildren() {
  siginfo_t info{};
  return waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT) == 0 || errno != ECHILD;
}

}  // namespace test
