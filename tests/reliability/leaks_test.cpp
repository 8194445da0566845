// What a process does ten thousand times leaves nothing behind: not in its memory, nor anywhere
// else. Over the desk, with tasks in processes of their own.
#include <malloc.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>

#include "forge/object.h"
#include "tests/support/log_capture.h"
#include "tests/support/plugin_fixture.h"
#include "tests/support/scale.h"

namespace {

using cw::EncodableValue;
using flrpc::Message;
using test::WaitUntil;

#ifdef TAVO_TEST_SANITIZED  // Sanitizers have a heap of their own.
constexpr bool kMeasuresMemory = false;
#else
constexpr bool kMeasuresMemory = TAVO_TEST_DEADLINE_FACTOR == 1;  // Not an emulator's.
#endif
constexpr int kEase = kMeasuresMemory ? 1 : 5;
constexpr int64_t kMostGrowth = 1 << 20;
constexpr int64_t kSlack = 64 << 10;  // Buffers grow with the largest burst so far.

struct Counter : forge::details::CounterClient {
  static void Set(uint32_t value) { counter_ = value; }
};

class LeaksTest : public test::PluginTest {
 protected:
  void SetUp() override {
    PluginTest::SetUp();
    descriptors_ = CountDescriptors();
    threads_ = CountThreads();
  }

  struct Usage {
    int64_t heap;
    int64_t resident;
  };

  // When all that was begun has ended, which must leave nothing but memory.
  Usage Measure() {
    EXPECT_TRUE(WaitUntil([this] { return Sockets().isEmpty() && !HasChildren(); }));
    EXPECT_TRUE(WaitUntil([this] { return CountDescriptors() == descriptors_; }));
    EXPECT_TRUE(WaitUntil([this] { return CountThreads() == threads_; }));
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    const auto memory = mallinfo2();
    int64_t size = 0;
    int64_t resident = 0;
    std::ifstream("/proc/self/statm") >> size >> resident;
    return {static_cast<int64_t>(memory.uordblks + memory.hblkhd), resident * getpagesize()};
  }

  // After the first tenth nothing grows any more. What is lost in each of few cycles is less than
  // the limit for many: it shows in the bytes of a cycle, be it an entry of a registry or a chunk.
  template <typename Cycle>
  void Repeat(int times, Cycle&& cycle) {
    for (int i = 0; i < times / 10 && !HasFailure(); ++i) cycle();
    const Usage before = Measure();
    for (int i = times / 10; i < times && !HasFailure(); ++i) cycle();
    const Usage after = Measure();
    if (!kMeasuresMemory) return;
    RecordProperty("heap", std::to_string(after.heap - before.heap));
    RecordProperty("resident", std::to_string(after.resident - before.resident));
    EXPECT_LT(after.heap - before.heap, std::min<int64_t>(kMostGrowth, kSlack + 10 * times));
    EXPECT_LT(after.resident - before.resident, kMostGrowth);
  }

  test::LogCapture log_;
  int descriptors_ = 0;  // When nothing runs, as the threads.
  int threads_ = 0;
};

TEST_F(LeaksTest, TasksThatAreStoppedOrKilled) {
  bool is_killed = false;
  Repeat(200 / kEase * test::GetScale(), [&] {
    const auto client = Connect();
    const auto process = Request(client, "pid", {}).GetResult()->Get<int32_t>();
    EXPECT_NE(0, process);
    if (!(is_killed = !is_killed)) return;
    kill(process, SIGKILL);
    EXPECT_TRUE(WaitUntil([process] { return test::IsGone(process); }));
    client->SendNotify("poke", 1);
    EXPECT_TRUE(client->IsConnected());  // The desk tells nobody of it.
  });
}

TEST_F(LeaksTest, TasksThatCannotBeStarted) {
  RunNatively();  // An emulator would start, whatever it is told to run.
  Write(QStringLiteral("broken"), "#!/no/such/interpreter\n");
  int cycle = 0;
  Repeat(100 / kEase * test::GetScale(), [&] {
    EXPECT_TRUE(Connect(++cycle % 2 == 0 ? "missing" : "broken")->HasConnectionFailed());
    if (cycle % 10 == 0) {  // What has failed stays until the manager's end.
      manager_.reset();
      manager_ = Load();
    }
    EXPECT_EQ(1u, log_.TakeLines().size());
  });
}

// A request and its answer each; the counter of the ids, which the texts on loan draw from, wraps
// in the middle.
TEST_F(LeaksTest, MessagesBothWaysWhileTheIdsWrap) {
  const int32_t requests = 10000 / kEase * test::GetScale();  // Of a client; ten clients.
  Counter::Set(0u - 5 * static_cast<uint32_t>(requests));
  Repeat(10, [this, requests] {
    const auto client = Connect();
    int32_t sent = 0;
    int32_t answered = 0;
    const auto is_answered = [&] {
      for (; sent < requests && sent < answered + 1000; ++sent) {
        client->SendRequest("echo", sent, [&answered, sent](const Message::Response& response) {
          if (*response.GetResult() == EncodableValue(sent) && sent == answered) ++answered;
        });
      }
      return answered == requests;
    };
    EXPECT_TRUE(WaitUntil(is_answered, test::kDeadline * test::GetScale()));
  });
  EXPECT_LT(forge::details::CounterClient::GenerateId(), 1u << 31) << "It did not wrap.";
}

}  // namespace
