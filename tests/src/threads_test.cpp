// The entries that any thread may call, called by eight, while the event loop's thread (this one,
// without a loop) delivers messages and stops. Meant for the thread sanitizer.
#include <atomic>
#include <thread>

#include <QCoreApplication>

#include "tests/src/service_fixture.h"

namespace {

class ThreadsTest : public test::ServiceTest {
 protected:
  int argc_ = 0;
  QCoreApplication app_{argc_, nullptr};  // So that Qt objects die here, on their own thread.
};

TEST_F(ThreadsTest, MessagesChunksAndReleaseMayMeet) {
  struct Context {
    TAVORpcClientProcTable* table;
    std::atomic<_TAVORpcClientRef*> client{nullptr};
    std::atomic<unsigned int> chunk{0};
    std::atomic<int> releases{0};
  };
  for (int round = 0; round < 20; ++round) {
    Context context{&client_table_};
    TAVORpcClientSlots slots{};
    slots.size = sizeof slots;
    slots.user_data = &context;
    slots.OnMessage = [](void* data, const char* text, unsigned int chunk) {
      EXPECT_STREQ("text", text);
      auto* self = static_cast<Context*>(data);
      const unsigned int old = self->chunk.exchange(chunk);
      if (old != 0) self->table->UnlockResources(self->client, old);
    };
    slots.Release = [](void* data) { ++static_cast<Context*>(data)->releases; };
    context.client = top_.CreateRpcClient(manager_);
    client_table_.StartTask(context.client, "worker", "/libs", &slots);
    platform_.tasks.back()->Started();

    std::atomic<int> running{8};
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
      threads.emplace_back([this, &context, &running, i] {
        for (int message = 0; message < 50; ++message) {
          client_table_.SendMessage(context.client, "text");
          if (const unsigned int chunk = context.chunk.exchange(0)) {
            client_table_.UnlockResources(context.client, chunk);
          }
        }
        if (i >= 6) client_table_.Release(context.client);
        --running;
      });
    }
    while (running > 0) platform_.messagings.back()->ReceiveText(QStringLiteral("text"));
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(3u, client_table_.SendMessage(context.client, "text"));
    EXPECT_EQ(0, context.releases);
    platform_.tasks.back()->Stopped();
    EXPECT_EQ(1, context.releases);
    // A chunk may be given back in the same moment in which Release makes the library free it.
    for (const std::string& line : log_.TakeLines()) {
      EXPECT_EQ(0u, line.find("[error] Invalid chunk ID <")) << line;
    }
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    EXPECT_FALSE(platform_.tasks.back()->alive);
  }
}

}  // namespace
