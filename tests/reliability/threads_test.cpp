// Races over what any thread may use: eight threads, as long as TAVO_TEST_SCALE says. The thread
// sanitizer watches; what each race must keep is checked without it, too.
#include <array>
#include <climits>
#include <mutex>
#include <random>
#include <thread>
#include <vector>

#include "flrpc/client.h"
#include "flrpc/receiver.h"
#include "forge/signals.h"
#include "src/rpc_client_impl.h"
#include "tests/reliability/world.h"
#include "tests/support/scale.h"

namespace {

using flrpc::Message;
using test::World;

constexpr int kThreads = 8;
constexpr int kInRound = 100;  // Operations of a thread.

class RaceTest : public test::TestBase {
 protected:
  static int CountRounds() { return 100 * test::GetScale(); }

  // Each thread begins when all are there, and steps aside after each operation: two cores would
  // run the threads one by one otherwise. `meanwhile` runs here until they are done.
  static void Race(
      const std::function<void(int thread, int operation)>& operate,
      const std::function<void()>& meanwhile = [] {}) {
    std::atomic<int> waiting{kThreads};
    std::atomic<int> running{kThreads};
    std::vector<std::thread> threads;
    for (int thread = 0; thread < kThreads; ++thread) {
      threads.emplace_back([&, thread] {
        for (--waiting; waiting > 0;) std::this_thread::yield();
        for (int operation = 0; operation < kInRound; ++operation) {
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
};

TEST_F(RaceTest, HandlesLeadToTheirObjectsOrNowhere) {
  using tavo::RpcClientImpl;
  for (int round = CountRounds(); round > 0; --round) {
    std::array<std::atomic<_TAVORpcClientRef*>, kThreads> handles{};
    Race([&](int thread, int operation) {
      auto client = RpcClientImpl::Create(nullptr);
      const auto own = client->GetRef();
      handles[static_cast<size_t>(thread)] = own;
      const auto other = handles[static_cast<size_t>((thread + operation) % kThreads)].load();
      auto found = RpcClientImpl::FromRef(other);
      EXPECT_TRUE(!found || found->GetRef() == other);
      EXPECT_EQ(client, RpcClientImpl::FromRef(own));
      found.reset();
      client.reset();
      // Only another's strong reference may keep it, for as long as it looks.
      while (RpcClientImpl::FromRef(own)) std::this_thread::yield();
    });
  }
}

TEST_F(RaceTest, SubscribersOfOneEmissionAndLastCallsAreCalledOnce) {
  for (int round = CountRounds(); round > 0; --round) {
    forge::OwnedRunOnceSignal<int> signal;
    std::atomic<int> subscribed{0};
    std::atomic<int> last{0};
    std::atomic<int> emitted{-1};
    std::vector<std::shared_ptr<forge::CppStyleListener<int>>> listeners;
    for (int i = 0; i < kInRound; ++i) {
      listeners.push_back(std::make_shared<forge::CppStyleListener<int>>([&last](int) { ++last; }));
    }
    Race([&](int thread, int operation) {
      signal.Subscribe([&](int emitter) {
        ++subscribed;
        int none = -1;
        EXPECT_TRUE(emitted.compare_exchange_strong(none, emitter) || none == emitter);
      });
      if (operation == (round + 10 * thread) % kInRound) signal.Emit(thread);
      const auto& listener = listeners[static_cast<size_t>(operation)];
      thread % 2 == 0 ? signal.Attach(listener) : listener->InvokeOnce(0);
    });
    EXPECT_EQ(kThreads * kInRound, subscribed);
    EXPECT_EQ(kInRound, last);
  }
}

TEST_F(RaceTest, MessagesPassTheReceiverOnceAndInTheOrderOfTheirThread) {
  for (int round = CountRounds(); round > 0; --round) {
    std::array<int, kThreads> next{};  // Unguarded: one message is delivered at a time.
    const auto check = [&next](const Message& message) {
      const int number = message.GetNotification()->params.Get<int32_t>();
      EXPECT_EQ(next[static_cast<size_t>(number / kInRound)]++, number % kInRound);
      return false;
    };
    int handled = 0;
    flrpc::details::Receiver receiver(check, check);
    receiver.OnNotify("m", [&handled](const Message::Notification&) { ++handled; });
    Race([&](int thread, int operation) {
      auto message = Message::CreateNotification("m", int32_t{thread * kInRound + operation});
      operation % 2 == 0 ? receiver.Send(std::move(message)) : receiver.Receive(std::move(message));
      if (thread == 0 && operation == round % kInRound) receiver.SetQueueEnabled();
      if (operation == 0) receiver.OnNotify("other", [](const Message::Notification&) {});
    });
    for (const int count : next) EXPECT_EQ(kInRound, count);
    EXPECT_EQ(kThreads * kInRound / 2, handled);
  }
}

// Failing, answering and sending meet: each callback is called once, whoever wins.
TEST_F(RaceTest, EveryRequestEndsOnce) {
  std::mt19937 random(test::GetSeed());
  for (int round = CountRounds(); round > 0; --round) {
    std::array<std::atomic<int>, kThreads * kInRound> calls{};
    std::mutex mutex;
    std::vector<Message::ID> sent;
    const auto client = flrpc::IOwnedClient::Create([&](Message&& message) {
      const std::lock_guard lock(mutex);
      sent.push_back(message.GetRequest()->id);
    });
    client->Run();
    client->NotifyStarted({});
    client->ReceiveMessage(Message::CreateResponse(sent.at(0), {}));
    const auto end = static_cast<int>(random() % kInRound);
    Race([&](int thread, int operation) {
      if (thread == 0 && operation == end) client->NotifyDisconnected({});
      auto& count = calls[static_cast<size_t>(thread * kInRound + operation)];
      client->SendRequest("m", {}, [&count](const Message::Response&) { ++count; });
      std::unique_lock lock(mutex);
      const Message::ID id = sent[sent.size() / 2];  // Some are answered more than once.
      lock.unlock();
      client->ReceiveMessage(Message::CreateResponse(id, {}));
    });
    for (const auto& count : calls) ASSERT_EQ(1, count);
    log_.TakeText();  // Answers that came twice, or after the failure.
  }
}

// Here this thread is the event loop's, without a loop: it delivers messages, starts and stops.
class ServiceRaceTest : public RaceTest {
 protected:
  // The threads give the chunks back that the callback is lent.
  void HandOverChunks(World& world, test::Callback callback) {
    world.hooked = callback;
    world.hook_runs = INT_MAX;
    world.hook = [&] { GiveBack(world, std::exchange(world.chunk, 0)); };
  }
  void GiveBack(World& world, unsigned int next = 0) {
    const unsigned int chunk = chunk_.exchange(next);
    if (chunk == 0) return;
    world.client_table.UnlockResources(client_, chunk);
    world.server_table.UnlockResources(server_, chunk);
  }

  std::atomic<unsigned int> chunk_{0};  // The newest that was not given back.
  std::atomic<_TAVORpcClientRef*> client_{nullptr};
  std::atomic<_TAVORpcServerRef*> server_{nullptr};
  int argc_ = 0;
  QCoreApplication app_{argc_, nullptr};  // So that Qt objects die here, on their own thread.
};

TEST_F(ServiceRaceTest, StartMessagesChunksAndReleaseOfAClientMayMeet) {
  for (int round = CountRounds(); round > 0; --round) {
    World world(log_);
    HandOverChunks(world, test::kMessage);
    world.CreateRaw();
    world.StartRaw();
    client_ = world.raw;
    Race(
        [&](int thread, int operation) {
          world.SendRaw();
          GiveBack(world);
          if (thread >= 6 && operation == (round + thread) % kInRound) {
            world.client_table.Release(client_);
          }
        },
        [&] {
          world.platform.tasks.back()->Started();
          world.platform.messagings.back()->Receive(world.message);
        });
    EXPECT_FALSE(world.SendRaw());
    GiveBack(world);
  }
}

TEST_F(ServiceRaceTest, MessagesChunksAndTheEndOfServersMayMeet) {
  for (int round = CountRounds(); round > 0; --round) {
    World world(log_);
    HandOverChunks(world, test::kServerMessage);
    Race(
        [&](int, int) {
          world.server_table.SendMessage(server_, World::kLongText);
          GiveBack(world);
        },
        [&] {
          server_ = world.raw_server = world.top.GetRpcServer(world.manager);
          world.RunRawServer();
          for (int i = 0; i < kInRound; ++i) world.server_channel->Receive(world.message);
          world.top.Release(world.manager);
        });
    GiveBack(world);
  }
}

TEST_F(ServiceRaceTest, UrisAreOpenedWhileRepliesArrive) {
  for (int round = CountRounds(); round > 0; --round) {
    World world(log_);
    Race([&](int, int) { EXPECT_TRUE(world.OpenRawUri()); },
         [&] { world.platform.ReplyToIntent(0); });
    world.Settle();
    EXPECT_EQ(kThreads * kInRound, world.calls[test::kUri]);
  }
}

}  // namespace
