#include "forge/buffer.h"

#include <cstring>

#include "tests/support/log_capture.h"
#include "tests/support/test_base.h"

namespace {

using forge::Buffer;

class BufferTest : public test::TestBase {};

TEST_F(BufferTest, EmptyBufferHasNoDataWhateverIsReserved) {
  const uint8_t byte = 1;
  Buffer buffer(nullptr, 5);
  buffer.WriteBytes(nullptr, 3);
  buffer.WriteBytes(&byte, 0);
  buffer.Reserve(100);
  EXPECT_EQ(nullptr, buffer.GetData());
  EXPECT_EQ(nullptr, buffer.Extract());
  EXPECT_EQ(Buffer(), buffer);
  buffer.WriteByte(1);
  EXPECT_NE(Buffer(), buffer);
  EXPECT_EQ(std::vector<uint8_t>{1}, *buffer.Extract());
  EXPECT_EQ(Buffer(), buffer);
}

TEST_F(BufferTest, AlignmentCountsFromTheFirstByte) {
  const struct {
    size_t before;
    uint8_t alignment;
    size_t after;
  } rows[] = {{9, 8, 16}, {16, 8, 16}, {0, 8, 0}, {5, 0, 5}, {5, 1, 5}, {5, 3, 6}, {1, 255, 255}};
  for (const auto& row : rows) {
    Buffer buffer(std::vector<uint8_t>(row.before, 0xFF));
    buffer.WriteAlignment(row.alignment);
    std::vector<uint8_t> expected(row.before, 0xFF);
    expected.resize(row.after);
    EXPECT_EQ(Buffer(expected), buffer);
  }
}

TEST_F(BufferTest, ViewIsWrittenWithinItsDeclaredSize) {
  const Buffer buffer(std::vector<uint8_t>{1, 2, 3});
  for (uint32_t size = sizeof size; size <= sizeof(ForgeBufferView); ++size) {
    ForgeBufferView view;
    std::memset(static_cast<void*>(&view), 0xA5, sizeof view);
    ForgeBufferView expected = view;
    std::memset(static_cast<void*>(&expected), 0, size);
    expected.struct_size = size;
    if (size >= 2 * sizeof(void*)) expected.data = buffer.GetData();
    if (size >= 3 * sizeof(void*)) expected.size = 3;
    ASSERT_EQ(FORGE_RESULT_OK, buffer.ToCAPI(&view, size));
    EXPECT_EQ(0, std::memcmp(&expected, &view, sizeof view)) << size;
  }
  test::LogCapture log;
  EXPECT_EQ(FORGE_RESULT_INVALID_ARGUMENT, buffer.ToCAPI(nullptr, 12));
  EXPECT_EQ("[error] Structure pointer is null", log.TakeLine());
}

}  // namespace
