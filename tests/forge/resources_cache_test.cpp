#include "forge/resources_cache.h"

#include "tests/support/log_capture.h"

using forge::Buffer;

class ResourcesCacheTest : public test::LogTest, public forge::ResourcesCache {
 protected:
  const uint32_t chunk_ = CreateChunk();
  ForgeBufferView view_{};
};

TEST_F(ResourcesCacheTest, TextStaysPutWhileItsChunkIsOpen) {
  const auto pair = AppendStr(chunk_, "first", {"two and more", 3});
  for (int i = 0; i < 1000; ++i) {
    AppendStr(chunk_, "more");
    AppendStr(CreateChunk(), "more");
  }
  EXPECT_STREQ("first", pair.first);
  EXPECT_STREQ("two", pair.second);
}

// Id 0 means none, though it marks the slots that are free: one was just freed.
TEST_F(ResourcesCacheTest, ReturnedChunkIsRefused) {
  CreateChunk();
  RemoveChunk(chunk_);
  for (const uint32_t bad : {0u, chunk_}) {
    EXPECT_EQ(nullptr, AppendStr(bad, "x"));
    EXPECT_EQ(nullptr, AppendStr(bad, "x", "y").second);
    EXPECT_FALSE(AppendBuffer(bad, Buffer(), &view_, sizeof view_));
    RemoveChunk(bad);
    EXPECT_FALSE(RemoveChunkIfOpen(bad));
    const std::string line = "[error] Invalid chunk ID <" + std::to_string(bad) + ">";
    EXPECT_EQ(std::vector(4, line), log_.TakeLines());
  }
  const uint32_t reused = CreateChunk();
  EXPECT_FALSE(RemoveChunkIfOpen(chunk_));
  EXPECT_TRUE(RemoveChunkIfOpen(reused));
}

TEST_F(ResourcesCacheTest, OpenChunksAreBounded) {
  for (int i = 1; i < 8192; ++i) EXPECT_TRUE(CreateChunk());
  EXPECT_FALSE(CreateChunk());
  ExpectError("Too many open chunks: 8192.");
  RemoveChunk(chunk_);
  EXPECT_TRUE(CreateChunk());
}

TEST_F(ResourcesCacheTest, GuardLendsUntilItEnds) {
  std::optional<forge::ResourcesCacheGuard> guard(*this);
  EXPECT_STREQ("text", guard->AppendStr("text"));
  EXPECT_STREQ("second", guard->AppendStr("first", "second").second);
  EXPECT_TRUE(guard->AppendBuffer(Buffer({1, 2, 3}), &view_, sizeof view_));
  EXPECT_EQ(Buffer({1, 2, 3}), Buffer::FromCAPI(&view_));
  EXPECT_FALSE(guard->AppendBuffer(Buffer(), nullptr, 0));
  ExpectError("AppendBuffer: output structure pointer is null");
  guard.reset();
  EXPECT_FALSE(RemoveChunkIfOpen(chunk_ + 1));
}
