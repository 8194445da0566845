// What a process does ten thousand times leaves nothing behind: not in its memory, nor anywhere
// else. Over the desk, with tasks in processes of their own.
#include <malloc.h>

#include "forge/object.h"
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
  // After the first tenth nothing grows any more, but for buffers that grow with the largest burst.
  // What is lost in each of few cycles is less than the limit for many: it shows in the bytes of a
  // cycle, be it an entry of a registry or a chunk.
  template <typename Cycle>
  void Repeat(int times, Cycle&& cycle) {
    const int descriptors = CountDescriptors();
    const int threads = CountThreads();
    const auto is_idle = [&] {
      if (!Sockets().isEmpty() || HasChildren()) return false;
      return CountDescriptors() == descriptors && CountThreads() == threads;
    };
    const auto measure_heap = [&] {
      EXPECT_TRUE(WaitUntil(is_idle));
      const auto memory = mallinfo2();
      return static_cast<int64_t>(memory.uordblks + memory.hblkhd);
    };
    int64_t before = 0;
    for (int i = 0; i < times && !HasFailure(); ++i) {
      if (i == times / 10) before = measure_heap();
      cycle(i);
    }
    const int64_t growth = measure_heap() - before;
    const int64_t most = std::min(1 << 20, (64 << 10) + 10 * times);
    EXPECT_TRUE(!kMeasuresMemory || growth < most) << growth;
  }
};

TEST_F(LeaksTest, TasksThatAreStoppedOrKilled) {
  Repeat(200 / kEase * test::GetScale(), [this](int cycle) {
    const auto client = Connect();
    const auto process = Request(client, "pid").GetResult()->Get<int32_t>();
    EXPECT_NE(0, process);
    if (cycle % 2 == 0) return;
    kill(process, SIGKILL);
    EXPECT_TRUE(WaitUntil([&] { return test::IsGone(process); }));
    client->SendNotify("poke", 1);
    EXPECT_TRUE(client->IsConnected());  // The desk tells nobody of it.
  });
}

// The counter of the ids, which the texts on loan draw from, wraps in the middle.
TEST_F(LeaksTest, MessagesBothWaysWhileTheIdsWrap) {
  const int32_t requests = 10000 / kEase * test::GetScale();  // Of a client; ten clients.
  Counter::Set(0u - 5 * static_cast<uint32_t>(requests));
  Repeat(10, [&](int) {
    const auto client = Connect();
    int32_t sent = 0;
    int32_t answered = 0;
    while (sent < requests && !HasFailure()) {
      client->SendRequest("echo", sent, [&answered, sent](const auto& response) {
        answered += *response.GetResult() == EncodableValue(sent) && sent == answered;
      });
      if (++sent % 1000 > 0) continue;
      EXPECT_TRUE(WaitUntil([&] { return answered == sent; }));
    }
  });
  EXPECT_LT(forge::details::CounterClient::GenerateId(), 1u << 31) << "It did not wrap.";
}

}  // namespace
