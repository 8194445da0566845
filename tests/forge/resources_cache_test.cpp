#include "forge/resources_cache.h"

#include "tests/support/log_capture.h"

using forge::Buffer;

class ResourcesCacheTest : public test::LogTest {
 protected:
  forge::ResourcesCache cache_;
  const uint32_t chunk_ = cache_.CreateChunk();
  ForgeBufferView view_{};
};

TEST_F(ResourcesCacheTest, TextStaysPutWhileItsChunkIsOpen) {
  const std::string_view text("b\0c", 4);
  const auto pair = cache_.AppendStr(chunk_, "first", text.substr(0, 3));
  for (int i = 0; i < 1000; ++i) {
    cache_.AppendStr(chunk_, "more");
    cache_.AppendStr(cache_.CreateChunk(), "more");
  }
  EXPECT_STREQ("first", pair.first);
  EXPECT_EQ(text, std::string_view(pair.second, 4));
}

// Id 0 means none, though it marks the slots that are free: one was just freed.
TEST_F(ResourcesCacheTest, ReturnedChunkIsRefusedThoughItsSlotIsReused) {
  cache_.CreateChunk();
  cache_.RemoveChunk(chunk_);
  for (const uint32_t bad : {0u, chunk_}) {
    EXPECT_EQ(nullptr, cache_.AppendStr(bad, "x"));
    EXPECT_EQ(nullptr, cache_.AppendStr(bad, "x", "y").second);
    EXPECT_FALSE(cache_.AppendBuffer(bad, Buffer(), &view_, sizeof view_));
    cache_.RemoveChunk(bad);
    EXPECT_FALSE(cache_.RemoveChunkIfOpen(bad));
    const std::string line = "[error] Invalid chunk ID <" + std::to_string(bad) + ">";
    EXPECT_EQ(std::vector<std::string>(4, line), log_.TakeLines());
  }
  const uint32_t reused = cache_.CreateChunk();
  EXPECT_FALSE(cache_.RemoveChunkIfOpen(chunk_));
  EXPECT_TRUE(cache_.RemoveChunkIfOpen(reused));
}

TEST_F(ResourcesCacheTest, OpenChunksAreBounded) {
  for (size_t i = 1; i < cache_.kMaxChunks; ++i) EXPECT_TRUE(cache_.CreateChunk());
  EXPECT_FALSE(cache_.CreateChunk());
  ExpectError("Too many open chunks: 8192.");
  cache_.RemoveChunk(chunk_);
  EXPECT_TRUE(cache_.CreateChunk());
}

TEST_F(ResourcesCacheTest, GuardLendsTextsAndBuffersAndRemovesItsChunk) {
  std::optional<forge::ResourcesCacheGuard> guard(cache_);
  EXPECT_STREQ("text", guard->AppendStr("text"));
  EXPECT_STREQ("second", guard->AppendStr("first", "second").second);
  EXPECT_TRUE(guard->AppendBuffer(Buffer({1, 2, 3}), &view_, sizeof view_));
  EXPECT_EQ(Buffer({1, 2, 3}), Buffer::FromCAPI(&view_));
  EXPECT_TRUE(guard->AppendBuffer(Buffer({9}), &view_, offsetof(ForgeBufferView, size)));
  EXPECT_EQ(9, *view_.data);
  EXPECT_EQ(3u, view_.size);  // Beyond the declared size.
  EXPECT_FALSE(guard->AppendBuffer(Buffer(), nullptr, 0));
  ExpectError("AppendBuffer: output structure pointer is null");
  guard.reset();
  EXPECT_FALSE(cache_.RemoveChunkIfOpen(chunk_ + 1));
}
