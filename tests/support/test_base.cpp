#include "tests/support/test_base.h"

#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <thread>

#include "tests/support/deadline.h"
#include "tests/support/scale.h"

namespace test {

static int CountEntries(const char* folder) {
  const std::filesystem::directory_iterator entries(folder);
  return static_cast<int>(std::distance(entries, {}));
}

// A sanitizer's or an emulator's own thread starts with the first one. One that was joined may be
// listed a moment longer.
static void StartAndJoinAThread() {
  pid_t id = 0;
  std::thread([&id] { id = gettid(); }).join();
  WaitUntil([id] { return !std::filesystem::exists("/proc/self/task/" + std::to_string(id)); });
}

static void EndLateTest(int) {
  constexpr char kText[] = "The test takes too long.\n";
  _exit(write(fileno(stdout), kText, sizeof kText - 1) > 0 ? 1 : 2);
}

void TestBase::SetUp() {
  std::signal(SIGALRM, EndLateTest);
  alarm(unsigned(5 * kDeadline.count() * GetScale()));
  StartAndJoinAThread();
  descriptors_ = CountDescriptors();
  threads_ = CountThreads();
}

void TestBase::TearDown() {
  // What is to be deleted later, or ends with another process, closes its own in time.
  const auto has_closed = [this] { return CountDescriptors() == descriptors_; };
  const auto has_joined = [this] { return CountThreads() <= threads_; };
  EXPECT_TRUE(WaitUntil(has_closed)) << "A descriptor is left.";
  EXPECT_TRUE(WaitUntil(has_joined)) << "A thread is left.";
  EXPECT_FALSE(HasChildren()) << "A child process is left.";
  alarm(0);
}

int TestBase::CountDescriptors() { return CountEntries("/proc/self/fd"); }

int TestBase::CountThreads() { return CountEntries("/proc/self/task"); }

bool TestBase::HasChildren() {
  siginfo_t info{};
  const int result = waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT);
  return result == 0 || errno != ECHILD;
}

}  // namespace test
