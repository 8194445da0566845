#include "forge/resources_cache.h"

#include <string>

#include "tests/support/log_capture.h"
#include "tests/support/test_base.h"

namespace {

class ResourcesCacheTest : public test::TestBase {
 protected:
  test::LogCapture log_;
  forge::ResourcesCache cache_;
};

TEST_F(ResourcesCacheTest, TextStaysPutWhileItsChunkIsOpen) {
  const uint32_t chunk = cache_.CreateChunk();
  const auto pair = cache_.AppendStr(chunk, "first", std::string_view("b\0c", 3));
  for (int i = 0; i < 1000; ++i) {
    cache_.AppendStr(chunk, std::to_string(i));
    cache_.AppendStr(cache_.CreateChunk(), std::to_string(i));
  }
  EXPECT_STREQ("first", pair.first);
  EXPECT_EQ(std::string_view("b\0c", 4), std::string_view(pair.second, 4));
}

// Id 0 means none, though it marks the slots that are free: one was just freed.
TEST_F(ResourcesCacheTest, ReturnedChunkIsRefusedThoughItsSlotIsReused) {
  const uint32_t returned = cache_.CreateChunk();
  cache_.CreateChunk();
  cache_.RemoveChunk(returned);
  ForgeBufferView view{};
  for (const uint32_t bad : {0u, returned}) {
    const std::string line = "[error] Invalid chunk ID <" + std::to_string(bad) + ">";
    EXPECT_EQ(nullptr, cache_.AppendStr(bad, "x"));
    EXPECT_EQ(line, log_.TakeLine());
    EXPECT_EQ(nullptr, cache_.AppendStr(bad, "x", "y").second);
    EXPECT_EQ(line, log_.TakeLine());
    EXPECT_FALSE(cache_.AppendBuffer(bad, forge::Buffer(), &view, sizeof view));
    EXPECT_EQ(line, log_.TakeLine());
    cache_.RemoveChunk(bad);
    EXPECT_EQ(line, log_.TakeLine());
    EXPECT_FALSE(cache_.RemoveChunkIfOpen(bad));
  }
  const uint32_t reused = cache_.CreateChunk();
  EXPECT_NE(returned, reused);
  EXPECT_FALSE(cache_.RemoveChunkIfOpen(returned));
  EXPECT_TRUE(cache_.RemoveChunkIfOpen(reused));
}

TEST_F(ResourcesCacheTest, OpenChunksAreBounded) {
  uint32_t last = 0;
  for (size_t i = 0; i < forge::ResourcesCache::kMaxChunks; ++i) last = cache_.CreateChunk();
  EXPECT_NE(0u, last);
  EXPECT_EQ(0u, cache_.CreateChunk());
  EXPECT_EQ("[error] Too many open chunks: 8192.", log_.TakeLine());
  cache_.RemoveChunk(last);
  EXPECT_NE(0u, cache_.CreateChunk());
}

TEST_F(ResourcesCacheTest, GuardLendsTextsAndBuffersAndRemovesItsChunk) {
  ForgeBufferView view{0, nullptr, 77};
  {
    forge::ResourcesCacheGuard guard(cache_);
    EXPECT_STREQ("text", guard.AppendStr("text"));
    EXPECT_STREQ("second", guard.AppendStr("first", "second").second);
    EXPECT_TRUE(guard.AppendBuffer(forge::Buffer({1, 2, 3}), &view, 2 * sizeof(void*)));
    EXPECT_EQ(2, view.data[1]);
    EXPECT_EQ(77u, view.size);  // Beyond the declared size.
    EXPECT_FALSE(guard.AppendBuffer(forge::Buffer(), nullptr, sizeof view));
    EXPECT_EQ("[error] AppendBuffer: output structure pointer is null", log_.TakeLine());
  }
  const uint32_t removed = cache_.CreateChunk() - 1;
  EXPECT_FALSE(cache_.RemoveChunkIfOpen(removed));
}

}  // namespace
