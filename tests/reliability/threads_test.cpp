// Races over what any thread may use: eight threads, as long as TAVO_TEST_SCALE says. The thread
// sanitizer watches; what each race must keep is checked without it, too.
#include <mutex>
#include <thread>

#include "flrpc/receiver.h"
#include "tests/reliability/world.h"
#include "tests/support/scale.h"

namespace {

using flrpc::Message;
using test::World;

constexpr size_t kThreads = 8;
constexpr size_t kInRound = 100;  // Operations of a thread.
constexpr size_t kAll = kThreads * kInRound;

class RaceTest : public test::TestBase {
 protected:
  static size_t CountRounds() { return 100 * size_t(test::GetScale()); }

  // Each thread begins when all are there, and steps aside after each operation: two cores would
  // run the threads one by one otherwise. `meanwhile` runs here until they are done.
  template <typename Operate, typename Meanwhile = void (*)()>
  static void Race(
      const Operate& operate, const Meanwhile& meanwhile = [] {}) {
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

  test::LogCapture log_;
  int argc_ = 0;
  QCoreApplication app_{argc_, nullptr};  // So that Qt objects die here, on their own thread.
};

TEST_F(RaceTest, SubscribersOfOneEmissionAndLastCallsAreCalledOnce) {
  using Listener = forge::CppStyleListener<size_t>;
  for (size_t round = CountRounds(); round > 0; --round) {
    forge::OwnedRunOnceSignal<size_t> signal;
    std::array<std::atomic<size_t>, kThreads> told{};  // By whose emission it was.
    std::atomic<size_t> last{0};
    std::array<std::shared_ptr<Listener>, kInRound> listeners;
    for (auto& listener : listeners) listener = std::make_shared<Listener>([&](size_t) { ++last; });
    Race([&](size_t thread, size_t operation) {
      signal.Subscribe([&](size_t emitter) { ++told[emitter]; });
      if (operation == (round + 10 * thread) % kInRound) signal.Emit(thread);
      const auto& listener = listeners[operation];
      thread % 2 == 0 ? signal.Attach(listener) : listener->InvokeOnce(0);
    });
    EXPECT_EQ(1, std::count(told.begin(), told.end(), kAll));
    EXPECT_EQ(kInRound, last);
  }
}

TEST_F(RaceTest, MessagesPassTheReceiverOnceAndInTheOrderOfTheirThread) {
  for (size_t round = CountRounds(); round > 0; --round) {
    std::array<size_t, kThreads> next{};  // Unguarded: one message is delivered at a time.
    const auto check = [&next](const Message& message) {
      const auto number = size_t(message.GetNotification()->params.Get<int32_t>());
      EXPECT_EQ(next[number / kInRound]++, number % kInRound);
      return false;
    };
    size_t handled = 0;
    flrpc::details::Receiver receiver(check, check);
    receiver.OnNotify("m", [&handled](const Message::Notification&) { ++handled; });
    Race([&](size_t thread, size_t operation) {
      auto message = Message::CreateNotification("m", int32_t(thread * kInRound + operation));
      operation % 2 == 0 ? receiver.Send(std::move(message)) : receiver.Receive(std::move(message));
      if (thread == 0 && operation == round % kInRound) receiver.SetQueueEnabled();
      if (operation == 0) receiver.OnNotify("other", [](const Message::Notification&) {});
    });
    for (const size_t count : next) EXPECT_EQ(kInRound, count);
    EXPECT_EQ(kAll / 2, handled);
  }
}

// Failing, answering and sending meet: each callback is called once, whoever wins.
TEST_F(RaceTest, EveryRequestEndsOnce) {
  for (size_t round = CountRounds(); round > 0; --round) {
    std::array<std::atomic<int>, kAll> calls{};
    std::mutex mutex;
    Message newest;
    const auto client = flrpc::IOwnedClient::Create([&](Message&& message) {
      const std::lock_guard lock(mutex);
      newest = Message::CreateResponse(message.GetRequest()->id, {});
    });
    const auto answer = [&] {
      std::unique_lock lock(mutex);
      Message copy = newest;
      lock.unlock();
      client->ReceiveMessage(std::move(copy));
    };
    client->Run();
    client->NotifyStarted({});
    answer();
    Race([&](size_t thread, size_t operation) {
      if (thread == 0 && operation == round % kInRound) client->NotifyDisconnected({});
      auto& count = calls[thread * kInRound + operation];
      client->SendRequest("m", {}, [&count](const Message::Response&) { ++count; });
      answer();  // Some come twice, or after the failure.
    });
    for (const auto& count : calls) ASSERT_EQ(1, count);
    log_.TakeText();
  }
}

// This thread is the event loop's, without a loop: it delivers messages, starts and stops. The
// others give the chunks back that the callbacks are lent. In every other round the manager, its
// client and its servers end meanwhile.
TEST_F(RaceTest, UseAndReleaseMeetCallbacks) {
  for (size_t round = CountRounds(); round > 0; --round) {
    World world;
    world.hooked = 0;
    world.hook_runs = INT_MAX;
    world.hook = std::this_thread::yield;
    world.StartRaw();
    Race(
        [&](size_t thread, size_t operation) {
          world.Send();
          world.ServerSend();
          world.OpenUri();
          world.GiveBack(world.raw, world.chunk.exchange(0));
          if (thread >= 6 && operation == (round + thread) % kInRound) world.Release();
        },
        [&] {
          world.raw_server = world.top.GetRpcServer(world.manager);
          world.RunServer();
          world.Started();
          for (size_t i = 0; i < kInRound; ++i) world.ServerReceive();
          world.Receive();
          world.platform.ReplyToIntent(0);
          if (round % 2 == 0) world.ReleaseManager();
        });
    world.Settle();
    EXPECT_TRUE(round % 2 == 0 || size_t(world.uris) == kAll) << world.uris;
    world.Send();
    EXPECT_FALSE(world.is_done);
  }
}

}  // namespace
