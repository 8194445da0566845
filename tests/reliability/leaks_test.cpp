// What a process does ten thousand times leaves nothing behind: not in its memory, nor anywhere
// else. Over the desk, with tasks in processes of their own.
#include <malloc.h>

#include "forge/object.h"
#include "tests/support/log_capture.h"
#include "tests/support/plugin_fixture.h"
#include "tests/support/scale.h"

namespace {

using cw::EncodableValue;
using test::WaitUntil;

// Sanitizers have a heap of their own, emulators take memory for themselves.
constexpr bool kMeasuresMemory = !TAVO_TEST_SANITIZED && TAVO_TEST_DEADLINE_FACTOR == 1;
constexpr int kEase = kMeasuresMemory ? 1 : 5;

struct Counter : forge::details::CounterClient {
  static void Set(uint32_t value) { counter_ = value; }
};

class LeaksTest : public test::PluginTest {
 protected:
  // When all that was begun has ended, which must leave nothing but memory.
  int64_t MeasureHeap() const {
    EXPECT_TRUE(WaitUntil([this] {
      const bool is_idle = Sockets().isEmpty() && !HasChildren();
      return is_idle && CountDescriptors() == descriptors_ && CountThreads() == threads_;
    }));
    const auto memory = mallinfo2();
    return static_cast<int64_t>(memory.uordblks + memory.hblkhd);
  }

  // After the first tenth nothing grows any more, but for buffers that grow with the largest burst.
  // What is lost in each of few cycles is less than the limit for many: it shows in the bytes of a
  // cycle, be it an entry of a registry or a chunk.
  template <typename Cycle>
  void Repeat(int times, Cycle&& cycle) {
    descriptors_ = CountDescriptors();
    threads_ = CountThreads();
    int64_t before = 0;
    for (int i = 0; i < times && !HasFailure(); ++i) {
      if (i == times / 10) before = MeasureHeap();
      cycle(i);
    }
    const int64_t growth = MeasureHeap() - before;
    const int64_t most = std::min(1 << 20, (64 << 10) + 10 * times);
    EXPECT_TRUE(!kMeasuresMemory || growth < most) << growth;
  }

  test::LogCapture log_;
  int descriptors_ = 0;  // When nothing runs, as the threads.
  int threads_ = 0;
};

TEST_F(LeaksTest, TasksThatAreStoppedOrKilled) {
  Repeat(200 / kEase * test::GetScale(), [this](int cycle) {
    const auto client = Connect();
    const auto process = Request(client, "pid").GetResult()->Get<int32_t>();
    EXPECT_NE(0, process);
    if (cycle % 2 == 0) return;
    kill(process, SIGKILL);
    EXPECT_TRUE(WaitUntil([process] { return test::IsGone(process); }));
    client->SendNotify("poke", 1);
    EXPECT_TRUE(client->IsConnected());  // The desk tells nobody of it.
  });
}

TEST_F(LeaksTest, TasksThatCannotBeStarted) {
  qunsetenv("TAVO_DESK_WRAPPER");  // An emulator would start, whatever it is told to run.
  Write("broken", "#!/no/such/interpreter\n");
  Repeat(100 / kEase * test::GetScale(), [this](int cycle) {
    EXPECT_TRUE(Connect(cycle % 2 == 0 ? "missing" : "broken")->HasConnectionFailed());
    if (cycle % 10 == 9) {  // What has failed stays until the manager's end.
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
  Repeat(10, [this, requests](int) {
    const auto client = Connect();
    int32_t sent = 0;
    int32_t answered = 0;
    const auto is_answered = [&] {
      for (; sent < requests && sent < answered + 1000; ++sent) {
        client->SendRequest("echo", sent, [&answered, sent](const auto& response) {
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
