// The rule for structures of pointer-wide fields that begin with their declared size.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <functional>

namespace test {

// Has a structure filled at each declared size from 0 to past its end, and compares every byte with
// what must be there: the declared ones cleared, the size always, and each field at its boundary.
template <typename Structure, typename Fill>
void CheckFilling(const Fill& fill) {
  constexpr size_t kWidth = sizeof(void*);
  constexpr size_t kRoom = sizeof(Structure) + 16;
  Structure full{};
  ASSERT_EQ(0u, fill(&full, sizeof full));
  for (uint32_t size = 0; size <= kRoom; ++size) {
    SCOPED_TRACE(size);
    alignas(Structure) std::array<uint8_t, kRoom + 8> memory;
    memory.fill(0xA5);
    auto expected = memory;
    std::memset(expected.data(), 0, size);
    std::memcpy(expected.data(), &size, sizeof size);
    for (size_t at = kWidth; at + kWidth <= std::min<size_t>(size, sizeof full); at += kWidth) {
      void* field = nullptr;
      std::memcpy(&field, reinterpret_cast<const char*>(&full) + at, kWidth);
      EXPECT_NE(nullptr, field) << at;
      std::memcpy(expected.data() + at, &field, kWidth);
    }
    ASSERT_EQ(0u, fill(reinterpret_cast<Structure*>(memory.data()), size));
    EXPECT_EQ(expected, memory);
  }
}

}  // namespace test
