// Callers of every age: tables and views are filled as far as they are declared, and slots count
// as far as they are declared. Every size is tried, and each field null once.
#include "tests/support/declared_sizes.h"

#include "forge/buffer.h"
#include "tests/src/service_fixture.h"

namespace {

using test::Covers;
using test::FieldOf;
using test::kFields;

class DeclaredSizesTest : public test::ServiceTest {};

// Cleared as far as declared, the size always stored, each field that is covered whole, and
// nothing beyond.
template <typename Structure>
void CheckFilled(ForgeResult (*fill)(Structure*, uint32_t)) {
  Structure full{};
  fill(&full, sizeof full);
  for (uint32_t size = 0; size <= sizeof full + 16; ++size) {
    std::vector<uint8_t> memory(size + 16, 0xA5);
    std::vector<uint8_t> expected = memory;
    std::fill_n(expected.begin(), size, 0);
    std::memcpy(expected.data(), &size, sizeof size);
    for (size_t field = 1; field < kFields<Structure> && Covers(size, field); ++field) {
      void* const value = FieldOf(full, field);
      EXPECT_TRUE(value);
      std::memcpy(expected.data() + field * test::kField, &value, test::kField);
    }
    EXPECT_EQ(FORGE_RESULT_OK, fill(reinterpret_cast<Structure*>(memory.data()), size));
    EXPECT_EQ(expected, memory) << size;
  }
  EXPECT_EQ(FORGE_RESULT_INVALID_ARGUMENT, fill(nullptr, sizeof full));
}

TEST_F(DeclaredSizesTest, TablesAndViewsAreFilledAsFarAsDeclared) {
  CheckFilled(TAVOProcTableLoad);
  CheckFilled(top.RpcClientProcTableLoad);
  CheckFilled(top.RpcServerProcTableLoad);
  CheckFilled(top.IntentManagerProcTableLoad);
  EXPECT_EQ(test::Events(4, "[error] Null table specified."), log_.TakeLines());
  static const forge::Buffer buffer(std::vector<uint8_t>{1});
  CheckFilled<ForgeBufferView>([](auto* view, auto size) { return buffer.ToCAPI(view, size); });
  EXPECT_EQ("[error] Structure pointer is null", log_.TakeLine());
}

// The calls of the slots: which field, with which user data.
using Calls = std::vector<std::pair<size_t, void*>>;
Calls calls;

template <size_t kField, typename... Arguments>
void Note(void* user_data, Arguments...) {
  calls.emplace_back(kField, user_data);
}

TEST_F(DeclaredSizesTest, SlotsCountAsFarAsDeclared) {
  int data = 0;
  const TAVORpcClientSlots full{0, Note<1>, Note<2>, Note<3>, Note<4>, &data};
  test::PageEnd page_end;
  test::ForEachDeclaration(full, [&](TAVORpcClientSlots declared, size_t) {
    const auto find = [&declared](size_t field) {
      return Covers(declared.size, field) ? FieldOf(declared, field) : nullptr;
    };
    Calls expected;
    for (const size_t field : {1, 3, 2, 2, 4}) {
      if (find(field)) expected.emplace_back(field, find(5));
    }
    for (TAVORpcClientSlots* given : {page_end.Place(declared), &declared}) {
      calls.clear();
      const auto client = top.CreateRpcClient(manager);
      EXPECT_EQ(FORGE_RESULT_OK, client_table.StartTask(client, "name", "/libs", given));
      platform.tasks.back()->Started();
      platform.messagings.back()->ReceiveText(QStringLiteral("text"));
      client_table.Release(client);
      platform.tasks.back()->Stopped();
      EXPECT_EQ(expected, calls);
    }
  });
}

}  // namespace
