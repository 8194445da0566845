// The size rule, at every declared size of every table and of the slots.
#include <algorithm>
#include <array>
#include <cstring>

#include "tests/src/service_fixture.h"

namespace {

using test::Events;

class TablesTest : public test::ServiceTest {
 protected:
  // Loads a table at each declared size into guarded memory, and compares every byte with what
  // must be there: the declared bytes cleared, the size always, and each entry at its boundary.
  template <typename Table>
  void Sweep(ForgeResult (*load)(Table*, unsigned int)) {
    constexpr size_t kWidth = sizeof(void*);
    constexpr size_t kRoom = sizeof(Table) + 16;
    Table full{};
    ASSERT_EQ(FORGE_RESULT_OK, load(&full, sizeof full));
    for (uint32_t size = 0; size <= kRoom; ++size) {
      SCOPED_TRACE(size);
      alignas(Table) std::array<uint8_t, kRoom + 8> memory;
      memory.fill(0xA5);
      auto expected = memory;
      std::memset(expected.data(), 0, size);
      std::memcpy(expected.data(), &size, sizeof size);
      for (size_t at = kWidth; at + kWidth <= std::min<size_t>(size, sizeof full); at += kWidth) {
        void* entry = nullptr;
        std::memcpy(&entry, reinterpret_cast<const char*>(&full) + at, kWidth);
        EXPECT_NE(nullptr, entry) << at;
        std::memcpy(expected.data() + at, &entry, kWidth);
      }
      ASSERT_EQ(FORGE_RESULT_OK, load(reinterpret_cast<Table*>(memory.data()), size));
      EXPECT_EQ(expected, memory);
    }
    EXPECT_EQ(FORGE_RESULT_INVALID_ARGUMENT, load(nullptr, sizeof full));
    EXPECT_EQ("[error] Null table specified.", log_.TakeLine());
  }
};

TEST_F(TablesTest, EveryLoaderKeepsToTheDeclaredSize) {
  Sweep<TAVOProcTable>(TAVOProcTableLoad);
  Sweep<TAVORpcClientProcTable>(top_.RpcClientProcTableLoad);
  Sweep<TAVORpcServerProcTable>(top_.RpcServerProcTableLoad);
  Sweep<TAVOIntentManagerProcTable>(top_.IntentManagerProcTableLoad);
}

// What the callbacks below were called with: "+" when the user data came along.
Events seen;

void Note(void* user_data, const std::string& name) {
  seen.push_back(name + (user_data ? "+" : "-"));
}

template <uint32_t kFields>
std::vector<uint32_t> SizesThatCover(uint32_t fields) {
  constexpr uint32_t kWidth = sizeof(void*);
  return {fields * kWidth, fields == kFields ? 0xFFFFFFFFu : (fields + 1) * kWidth - 1};
}

TEST_F(TablesTest, ClientSlotsAreReadWithinTheirDeclaredSize) {
  for (uint32_t fields = 0; fields <= 6; ++fields) {
    for (const uint32_t size : SizesThatCover<6>(fields)) {
      SCOPED_TRACE(size);
      seen.clear();
      TAVORpcClientSlots slots{
          size,
          [](void* data, int, const char*, unsigned int) { Note(data, "started"); },
          [](void* data, int, const char*, unsigned int) { Note(data, "disconnect"); },
          [](void* data, const char*, unsigned int) { Note(data, "message"); },
          [](void* data) { Note(data, "release"); },
          &slots};
      const auto client = top_.CreateRpcClient(manager_);
      ASSERT_EQ(FORGE_RESULT_OK, client_table_.StartTask(client, "worker", "/libs", &slots));
      platform_.tasks.back()->Started();
      platform_.messagings.back()->ReceiveText(QStringLiteral("text"));
      top_.Release(manager_);
      const std::string with = fields >= 6 ? "+" : "-";
      Events expected;
      if (fields >= 2) expected.push_back("started" + with);
      if (fields >= 4) expected.push_back("message" + with);
      // A client destroyed while running tells of the disconnect twice.
      if (fields >= 3) expected.insert(expected.end(), 2, "disconnect" + with);
      if (fields >= 5) expected.push_back("release" + with);
      EXPECT_EQ(expected, seen);
    }
  }
}

TEST_F(TablesTest, ServerSlotsAreReadWithinTheirDeclaredSize) {
  for (uint32_t fields = 0; fields <= 5; ++fields) {
    for (const uint32_t size : SizesThatCover<5>(fields)) {
      SCOPED_TRACE(size);
      seen.clear();
      TAVORpcServerSlots slots{
          size, [](void* data, int, const char*, unsigned int) { Note(data, "started"); },
          [](void* data, const char*, unsigned int) { Note(data, "message"); },
          [](void* data) { Note(data, "release"); }, &slots};
      server_table_.Run(top_.GetRpcServer(manager_), &slots);
      platform_.messagings.back()->ReceiveText(QStringLiteral("text"));
      top_.Release(manager_);
      const std::string with = fields >= 5 ? "+" : "-";
      Events expected;
      if (fields >= 2) expected.push_back("started" + with);
      if (fields >= 3) expected.push_back("message" + with);
      if (fields >= 4) expected.push_back("release" + with);
      EXPECT_EQ(expected, seen);
    }
  }
}

}  // namespace
