// The entries that any thread may call, called by eight, while the event loop's thread (this one,
// without a loop) delivers messages and stops. Meant for the thread sanitizer.
#include <atomic>
#include <functional>
#include <thread>
#include <vector>

#include <QCoreApplication>

#include "tests/src/service_fixture.h"

namespace {

class ThreadsTest : public test::ServiceTest {
 protected:
  int argc_ = 0;
  QCoreApplication app_{argc_, nullptr};  // So that Qt objects die here, on their own thread.
};

// What the callbacks of one client or server need; the user data of its slots.
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

// Runs the body on eight threads, and `meanwhile` on this one until they are done.
void RunEight(const std::function<void(int)>& body, const std::function<void()>& meanwhile) {
  std::atomic<int> running{8};
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; ++i) {
    threads.emplace_back([&body, &running, i] {
      body(i);
      --running;
    });
  }
  do {
    meanwhile();
  } while (running > 0);
  for (auto& thread : threads) thread.join();
}

TEST_F(ThreadsTest, StartMessagesChunksAndReleaseOfAClientMayMeet) {
  for (int round = 0; round < 20; ++round) {
    Context context;
    auto slots = context.Slots<TAVORpcClientSlots>();
    const auto client = top_.CreateRpcClient(manager_);
    context.unlock = [&](unsigned int chunk) { client_table_.UnlockResources(client, chunk); };
    client_table_.StartTask(client, "worker", "/libs", &slots);
    const auto task = platform_.tasks.back();
    const size_t channels = platform_.messagings.size();
    RunEight(
        [&](int thread) {
          for (int message = 0; message < 50; ++message) {
            client_table_.SendMessage(client, "text");
            if (const unsigned int chunk = context.chunk.exchange(0)) context.unlock(chunk);
          }
          if (thread >= 6) client_table_.Release(client);
        },
        [&] {
          if (task->start) task->Started();
          platform_.messagings.back()->ReceiveText(QStringLiteral("text"));
        });
    EXPECT_EQ(channels + 1, platform_.messagings.size());
    EXPECT_EQ(3u, client_table_.SendMessage(client, "text"));
    EXPECT_EQ(0, context.releases);
    // Released before it ran, it stays until the manager's Release.
    task->stop ? task->Stopped() : top_.Release(manager_);
    EXPECT_EQ(1, context.releases);
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    EXPECT_FALSE(task->alive);
  }
}

TEST_F(ThreadsTest, RunMessagesAndChunksOfTheServerMayMeet) {
  Context context;
  auto slots = context.Slots<TAVORpcServerSlots>();
  const auto server = top_.GetRpcServer(manager_);
  context.unlock = [&](unsigned int chunk) { server_table_.UnlockResources(server, chunk); };
  RunEight(
      [&](int) {
        for (int message = 0; message < 500; ++message) {
          server_table_.SendMessage(server, "text");
          if (const unsigned int chunk = context.chunk.exchange(0)) context.unlock(chunk);
        }
      },
      [&] {
        server_table_.Run(server, &slots);
        platform_.messagings.back()->ReceiveText(QStringLiteral("text"));
      });
  top_.Release(manager_);
  EXPECT_EQ(1, context.releases);
}

}  // namespace
