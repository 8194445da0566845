// Races over whatever any thread may use: eight threads with ten thousand operations each, a
// hundred times as many in script/soak. The thread sanitizer watches; what each race must keep is
// checked without it, too.
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <functional>
#include <mutex>
#include <random>
#include <thread>
#include <vector>

#include <QCoreApplication>

#include "flrpc/receiver.h"
#include "flrpc/request_ids.h"
#include "forge/logger.h"
#include "forge/resources_cache.h"
#include "tests/src/service_fixture.h"
#include "tests/support/rpc_link.h"
#include "tests/support/scale.h"
#include "tests/support/thing.h"

namespace {

using flrpc::Message;
using test::Thing;
using test::ThingRef;

constexpr int kThreads = 8;
constexpr int kOperations = 10000;  // Of a thread, at scale 1.
constexpr int kInRound = 100;       // Where what is raced for can be had but once.

using Operation = std::function<void(int thread, int operation)>;

// Each thread begins when all are there, and steps aside after each operation: two cores would
// run the threads one by one otherwise. `meanwhile` runs here until they are done.
void Race(int operations, const Operation& operate,
          const std::function<void()>& meanwhile = nullptr) {
  std::atomic<int> waiting{kThreads};
  std::atomic<int> running{kThreads};
  std::vector<std::thread> threads;
  for (int thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([&, thread] {
      for (--waiting; waiting > 0;) std::this_thread::yield();
      for (int operation = 0; operation < operations; ++operation) {
        operate(thread, operation);
        std::this_thread::yield();
      }
      --running;
    });
  }
  while (meanwhile && running > 0) {
    meanwhile();
    std::this_thread::yield();
  }
  for (auto& thread : threads) thread.join();
}

int CountRounds() { return kOperations / kInRound * test::GetScale(); }

class RaceTest : public test::TestBase {};

TEST_F(RaceTest, HandlesLeadToTheirObjectsOrNowhere) {
  std::array<std::atomic<ThingRef*>, kThreads> handles{};
  Race(kOperations * test::GetScale(), [&](int thread, int operation) {
    auto thing = Thing::Create();
    ThingRef* const own = thing->GetRef();
    handles[static_cast<size_t>(thread)] = own;
    ThingRef* const other = handles[static_cast<size_t>((thread + operation) % kThreads)];
    auto found = Thing::FromRef(other);
    EXPECT_TRUE(!found || found->GetRef() == other);
    EXPECT_EQ(thing, Thing::FromRef(own));
    found.reset();
    thing.reset();
    // Only another's strong reference may keep it, for as long as it looks.
    while (Thing::FromRef(own)) std::this_thread::yield();
  });
}

TEST_F(RaceTest, TasksRunAsLongAsThereIsADispatcher) {
  for (int round = CountRounds(); round > 0; --round) {
    std::atomic<int> run{0};
    const auto dispatcher = std::make_shared<test::RunAtOnce>();
    const auto thing = Thing::Create(dispatcher);
    Race(kInRound, [&](int thread, int operation) {
      if (thread == 0 && operation == round % kInRound) thing->ResetDispatcher();
      thing->Invoke([&run] { ++run; }, 0);
    });
    EXPECT_EQ(dispatcher->runs, run);
    thing->Invoke([] { FAIL() << "The dispatcher was dropped."; }, 0);
  }
}

TEST_F(RaceTest, ChunksGoFromThreadToThreadWithTheirTexts) {
  forge::ResourcesCache cache;
  struct Lent {
    uint32_t chunk;
    const char* text;
    const std::string expected;
  };
  std::atomic<Lent*> handed{nullptr};
  const auto give_back = [&cache](Lent* lent) {
    if (!lent) return;
    EXPECT_EQ(lent->expected, lent->text);
    EXPECT_TRUE(cache.RemoveChunkIfOpen(lent->chunk));
    EXPECT_FALSE(cache.RemoveChunkIfOpen(lent->chunk));
    delete lent;
  };
  Race(kOperations * test::GetScale(), [&](int thread, int operation) {
    const std::string text = std::to_string(thread) + ":" + std::to_string(operation);
    const uint32_t chunk = cache.CreateChunk();
    give_back(handed.exchange(new Lent{chunk, cache.AppendStr(chunk, text), text}));
  });
  give_back(handed.exchange(nullptr));
  // All are free again: as many as there may be can be opened, without an error line.
  const test::LogCapture log;
  for (size_t i = 0; i < forge::ResourcesCache::kMaxChunks; ++i) cache.CreateChunk();
}

TEST_F(RaceTest, ListenersAreCalledWhileTheyAreSubscribed) {
  forge::OwnedSignal<int> signal;
  Race(kOperations * test::GetScale(), [&](int thread, int) {
    int own = 0;
    const uint32_t id = signal.Subscribe([&own, thread](int emitter) {
      if (emitter == thread) ++own;  // Of the others some come late, when this is over.
    });
    signal.Emit(thread);
    EXPECT_EQ(1, own);
    EXPECT_TRUE(signal.Unsubscribe(id));
    EXPECT_FALSE(signal.Unsubscribe(id));
  });
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
    Race(kInRound, [&](int thread, int operation) {
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
    int handled = 0;
    const auto check = [&next](const Message& message) {
      const int number = message.GetNotification()->params.Get<int32_t>();
      const auto thread = static_cast<size_t>(number / kInRound);
      EXPECT_EQ(next[thread]++, number % kInRound);
    };
    flrpc::details::Receiver receiver([&](Message&& message) { check(message); },
                                      [&](const Message& message) {
                                        check(message);
                                        return false;
                                      });
    receiver.OnNotify("m", [&handled](const Message::Notification&) { ++handled; });
    Race(kInRound, [&](int thread, int operation) {
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
  test::LogCapture log;
  const auto& ids = flrpc::details::RequestIds::Get();
  const size_t open = ids.CountOpen();
  for (int round = CountRounds(); round > 0; --round) {
    std::vector<std::atomic<int>> calls(kThreads * kInRound);
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
    std::atomic<size_t> next{1};
    Race(kInRound, [&](int thread, int operation) {
      if (thread == 0 && operation == end) client->NotifyDisconnected({});
      if (thread < 5) {
        auto& count = calls[static_cast<size_t>(thread * kInRound + operation)];
        return client->SendRequest("m", {}, [&count](const Message::Response&) { ++count; });
      }
      std::unique_lock lock(mutex);
      if (next >= sent.size()) return;
      const Message::ID id = sent[next];
      if (operation % 2 == 0) ++next;  // Half of them are answered more than once.
      lock.unlock();
      client->ReceiveMessage(Message::CreateResponse(id, {}));
    });
    for (int i = 0; i < 5 * kInRound; ++i) ASSERT_EQ(1, calls[static_cast<size_t>(i)]) << i;
    log.TakeText();  // Answers that came twice, or after the failure.
  }
  EXPECT_EQ(open, ids.CountOpen());
}

// Whole lines are not promised, but their pieces are whole and none is lost, also while standard
// output is redirected.
TEST_F(RaceTest, PiecesOfLogLinesAreWholeWhereverTheyGo) {
  const std::string pieces[] = {"[error]", " tests/here:7 ", "a message", "\n"};
  for (int round = test::GetScale(); round > 0; --round) {
    const int files[] = {memfd_create("even", MFD_CLOEXEC), memfd_create("odd", MFD_CLOEXEC)};
    for (const int file : files) fcntl(file, F_SETFL, O_APPEND);
    const int saved = dup(STDOUT_FILENO);
    dup2(files[0], STDOUT_FILENO);
    size_t changes = 0;
    Race(
        kOperations,
        [&pieces](int, int) {
          forge::logger::details::Printer(forge::logger::details::LogLevel::kError, pieces[1])
              << pieces[2];
        },
        [&] { dup2(files[++changes % 2], STDOUT_FILENO); });
    dup2(saved, STDOUT_FILENO);
    close(saved);
    std::array<int, 4> counts{};
    for (const int file : files) {
      std::string text(static_cast<size_t>(lseek(file, 0, SEEK_END)), '\0');
      ASSERT_EQ(static_cast<ssize_t>(text.size()), pread(file, text.data(), text.size(), 0));
      close(file);
      for (size_t at = 0; at < text.size();) {
        size_t piece = 0;
        while (piece < 4 && text.compare(at, pieces[piece].size(), pieces[piece]) != 0) ++piece;
        ASSERT_LT(piece, 4u) << "torn: " << text.substr(at, 40);
        ++counts[piece];
        at += pieces[piece].size();
      }
    }
    for (const int count : counts) EXPECT_EQ(kThreads * kOperations, count);
  }
}

// What the callbacks of a client or of servers need; the user data of their slots.
struct Context {
  std::function<void(unsigned int)> unlock;
  std::atomic<unsigned int> chunk{0};  // The newest that was not given back.
  std::atomic<int> releases{0};

  static void OnMessage(void* data, const char* text, unsigned int chunk) {
    EXPECT_STREQ("text", text);
    auto* self = static_cast<Context*>(data);
    if (const unsigned int old = self->chunk.exchange(chunk)) self->unlock(old);
  }
  static void OnRelease(void* data) { ++static_cast<Context*>(data)->releases; }

  template <typename SlotsT>
  SlotsT Slots() {
    SlotsT slots{};
    slots.size = sizeof slots;
    slots.user_data = this;
    slots.OnMessage = OnMessage;
    slots.Release = OnRelease;
    return slots;
  }
};

// Here this thread is the event loop's, without a loop: it delivers messages, starts and stops.
class ServiceRaceTest : public test::ServiceTest {
 protected:
  // The fake keeps what it was given.
  void ForgetPlatform() {
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    const std::lock_guard lock(platform.mutex);
    platform.tasks.clear();
    platform.messagings.clear();
  }

  int argc_ = 0;
  QCoreApplication app_{argc_, nullptr};  // So that Qt objects die here, on their own thread.
};

TEST_F(ServiceRaceTest, StartMessagesChunksAndReleaseOfAClientMayMeet) {
  for (int round = CountRounds(); round > 0; --round) {
    Context context;
    auto slots = context.Slots<TAVORpcClientSlots>();
    const auto client = top.CreateRpcClient(manager);
    context.unlock = [&](unsigned int chunk) { client_table.UnlockResources(client, chunk); };
    client_table.StartTask(client, "worker", "/libs", &slots);
    const auto task = platform.tasks.back();
    const size_t channels = platform.messagings.size();
    Race(
        kInRound,
        [&](int thread, int operation) {
          client_table.SendMessage(client, "text");
          if (const unsigned int chunk = context.chunk.exchange(0)) context.unlock(chunk);
          if (thread >= 6 && operation == (round + thread) % kInRound) {
            client_table.Release(client);
          }
        },
        [&] {
          if (task->start) task->Started();
          platform.messagings.back()->ReceiveText(QStringLiteral("text"));
        });
    EXPECT_EQ(channels + 1, platform.messagings.size());
    EXPECT_EQ(FORGE_RESULT_WRONG_STATE, client_table.SendMessage(client, "text"));
    EXPECT_EQ(0, context.releases);
    // Released before it ran, it stays until the manager's Release.
    task->stop ? task->Stopped() : top.Release(manager);
    EXPECT_EQ(1, context.releases);
    ForgetPlatform();
    EXPECT_FALSE(task->alive);
  }
}

TEST_F(ServiceRaceTest, UrisAreOpenedWhileRepliesArrive) {
  struct Fate {
    std::atomic<int> outcomes{0};
    std::atomic<int> releases{0};
  };
  for (int round = CountRounds(); round > 0; --round) {
    std::vector<Fate> fates(kThreads * kInRound);
    const auto intents = top.GetIntentManager(manager);
    Race(
        kInRound,
        [&](int thread, int operation) {
          TAVOOpenUriSlot slot{sizeof slot,
                               [](void* fate, bool) { ++static_cast<Fate*>(fate)->outcomes; },
                               [](void* fate) { ++static_cast<Fate*>(fate)->releases; },
                               &fates[static_cast<size_t>(thread * kInRound + operation)]};
          intent_table.OpenUri(intents, "u:", &slot);
        },
        [&] { platform.ReplyToIntent(0); });
    for (size_t i = 0; i < fates.size(); ++i) platform.ReplyToIntent(0);  // The last ones.
    EXPECT_EQ(fates.size(), std::exchange(platform.invocations, {}).size());
    for (const Fate& fate : fates) ASSERT_TRUE(fate.outcomes == 1 && fate.releases == 1);
  }
}

TEST_F(ServiceRaceTest, MessagesChunksAndTheEndOfServersMayMeet) {
  Context context;
  auto slots = context.Slots<TAVORpcServerSlots>();
  std::atomic<_TAVORpcServerRef*> server{nullptr};
  context.unlock = [&](unsigned int chunk) { server_table.UnlockResources(server, chunk); };
  int runs = 0;
  for (int round = CountRounds(); round > 0; --round) {
    Race(
        kInRound,
        [&](int, int) {
          server_table.SendMessage(server, "text");
          if (const unsigned int chunk = context.chunk.exchange(0)) context.unlock(chunk);
        },
        [&] {
          ++runs;
          server = top.GetRpcServer(manager);
          server_table.Run(server, &slots);
          for (int message = 0; message < kInRound; ++message) {
            platform.messagings.back()->ReceiveText(QStringLiteral("text"));
          }
          top.Release(manager);
        });
    ForgetPlatform();  // What the threads left to this one is in order behind their end.
  }
  EXPECT_EQ(runs, context.releases);
  log_.TakeText();  // Chunks that were given back to the server after theirs.
}

}  // namespace
