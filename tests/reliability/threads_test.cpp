// Races over what any thread may use: eight threads, as long as TAVO_TEST_SCALE says. The thread
// sanitizer watches; what each race must keep is checked without it, too.
#include <thread>

#include "tests/reliability/world.h"
#include "tests/support/scale.h"

namespace {

using test::World;

constexpr size_t kThreads = 8;
constexpr size_t kInRound = 100;  // Operations of a thread.

class RaceTest : public test::TestBase {
 protected:
  // Each thread begins when all are there, and steps aside after each operation: two cores would
  // run the threads one by one otherwise. `meanwhile` runs here until they are done.
  template <typename Operate, typename Meanwhile>
  static void Race(const Operate& operate, const Meanwhile& meanwhile) {
    std::atomic<size_t> waiting{kThreads};
    std::atomic<size_t> running{kThreads};
    std::vector<std::thread> threads;
    for (size_t thread = 0; thread < kThreads; ++thread) {
      threads.emplace_back([&, thread] {
        for (--waiting; waiting > 0;) std::this_thread::yield();
        for (size_t operation = 0; operation < kInRound; ++operation) {
          operate(thread, operation);
          std::this_thread::yield();
        }
        --running;
      });
    }
    for (; running > 0; std::this_thread::yield()) meanwhile();
    for (auto& thread : threads) thread.join();
  }

  int argc_ = 0;
  QCoreApplication app_{argc_, nullptr};  // So that Qt objects die here, on their own thread.
};

// This thread is the event loop's, without a loop: it delivers messages, starts and stops. The
// others send requests, and give the chunks back that the callbacks are lent. In every other round
// the manager, its clients and its servers end meanwhile. Each request ends once, whoever wins.
TEST_F(RaceTest, UseAndReleaseMeetCallbacks) {
  for (int round = 20 * test::GetScale(); round > 0; --round) {
    World world;
    world.Connect();
    world.hooked = 0;
    world.hook_runs = INT_MAX;
    world.hook = std::this_thread::yield;
    world.StartRaw();
    Race(
        [&](size_t thread, size_t operation) {
          world.Send();
          world.ServerSend();
          world.OpenUri();
          world.Request();
          world.GiveBack();
          if (thread >= 6 && operation == (size_t(round) + thread) % kInRound) world.Release();
        },
        [&] {
          world.raw_server = world.top.GetRpcServer(world.manager);
          world.RunServer();
          world.Started();
          for (size_t i = 0; i < kInRound; ++i) world.ServerReceive();
          world.Receive();
          world.Carry();
          if (round % 2 == 0) world.ReleaseManager();
        });
    world.Settle();
    EXPECT_EQ(kThreads * kInRound, world.answers);
    world.Send();
    EXPECT_FALSE(world.is_done);
  }
}

}  // namespace
