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
  const char* first = cache_.AppendStr(chunk, "first");
  for (int i = 0; i < 1000; ++i) {
    cache_.AppendStr(chunk, std::to_string(i));
    cache_.AppendStr(cache_.CreateChunk(), std::to_string(i));
  }
  EXPECT_STREQ("first", first);
  const auto pair = cache_.AppendStr(chunk, "a", std::string_view("b\0c", 3));
  EXPECT_STREQ("a", pair.first);
  EXPECT_EQ(std::string_view("b\0c", 4), std::string_view(pair.second, 4));
}

TEST_F(ResourcesCacheTest, ReturnedChunkIsRefusedThoughItsSlotIsReused) {
  const uint32_t returned = cache_.CreateChunk();
  cache_.RemoveChunk(returned);
  EXPECT_NE(returned, cache_.CreateChunk());
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
    cache_.RemoveChunkIfOpen(bad);
  }
}

TEST_F(ResourcesCacheTest, BufferIsDescribedWithinTheDeclaredSize) {
  const uint32_t chunk = cache_.CreateChunk();
  ForgeBufferView view{0, nullptr, 77};
  const uint32_t two_fields = 2 * sizeof(void*);
  EXPECT_TRUE(cache_.AppendBuffer(chunk, forge::Buffer({1, 2, 3}), &view, two_fields));
  EXPECT_EQ(two_fields, view.struct_size);
  EXPECT_EQ(2, view.data[1]);
  EXPECT_EQ(77u, view.size);
  EXPECT_FALSE(cache_.AppendBuffer(chunk, forge::Buffer(), nullptr, sizeof view));
  EXPECT_EQ("[error] AppendBuffer: output structure pointer is null", log_.TakeLine());
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

TEST_F(ResourcesCacheTest, GuardRemovesItsChunk) {
  {
    forge::ResourcesCacheGuard guard(cache_);
    EXPECT_STREQ("text", guard.AppendStr("text"));
    EXPECT_STREQ("second", guard.AppendStr("first", "second").second);
    ForgeBufferView view{};
    EXPECT_TRUE(guard.AppendBuffer(forge::Buffer({1}), &view, sizeof view));
  }
  const uint32_t next = cache_.CreateChunk();
  EXPECT_EQ(nullptr, cache_.AppendStr(next - 1, "x"));
  EXPECT_EQ("[error] Invalid chunk ID <" + std::to_string(next - 1) + ">", log_.TakeLine());
}

}  // namespace
