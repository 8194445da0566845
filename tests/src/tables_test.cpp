// The size rule, at every declared size of every table and of the slots.
#include <functional>

#include "tests/src/service_fixture.h"
#include "tests/support/declared_size.h"

namespace {

using test::Events;

class TablesTest : public test::ServiceTest {
 protected:
  template <typename Table>
  void Check(ForgeResult (*load)(Table*, unsigned int)) {
    test::CheckFilling<Table>(load);
    EXPECT_EQ(FORGE_RESULT_INVALID_ARGUMENT, load(nullptr, sizeof(Table)));
    EXPECT_EQ("[error] Null table specified.", log_.TakeLine());
  }
};

TEST_F(TablesTest, EveryLoaderKeepsToTheDeclaredSize) {
  Check<TAVOProcTable>(TAVOProcTableLoad);
  Check<TAVORpcClientProcTable>(top_.RpcClientProcTableLoad);
  Check<TAVORpcServerProcTable>(top_.RpcServerProcTableLoad);
  Check<TAVOIntentManagerProcTable>(top_.IntentManagerProcTableLoad);
}

// Slots are read field by field: a callback that the declared size covers is called, with the user
// data if that, the last field, is covered too.
class SlotsTest : public test::ServiceTest {
 protected:
  static inline Events seen_;

  template <char kName, typename... Arguments>
  static void Note(void* user_data, Arguments...) {
    seen_.push_back({kName, user_data ? '+' : '-'});
  }

  // `expected[n]` are the names of the callbacks that come when n fields are covered.
  template <typename Slots, size_t kCount>
  void Sweep(const Slots& full, const char* const (&expected)[kCount],
             const std::function<void(Slots*)>& run) {
    static_assert(sizeof(Slots) == (kCount - 1) * sizeof(void*));
    for (uint32_t fields = 0; fields < kCount; ++fields) {
      const bool is_whole = fields == kCount - 1;
      const auto width = static_cast<uint32_t>(sizeof(void*));
      for (const uint32_t size :
           {fields * width, is_whole ? 0xFFFFFFFFu : (fields + 1) * width - 1}) {
        SCOPED_TRACE(size);
        seen_.clear();
        Slots slots = full;
        slots.size = size;
        run(&slots);
        Events calls;
        for (const char* name = expected[fields]; *name; ++name) {
          calls.push_back({*name, is_whole ? '+' : '-'});
        }
        EXPECT_EQ(calls, seen_);
      }
    }
  }
};

TEST_F(SlotsTest, AreReadWithinTheirDeclaredSize) {
  // A client that is destroyed while it runs tells of the disconnect twice.
  Sweep<TAVORpcClientSlots>(
      {0, Note<'s'>, Note<'d'>, Note<'m'>, Note<'r'>, this},
      {"", "", "s", "sdd", "smdd", "smddr", "smddr"}, [this](TAVORpcClientSlots* slots) {
        const auto client = top_.CreateRpcClient(manager_);
        ASSERT_EQ(FORGE_RESULT_OK, client_table_.StartTask(client, "worker", "/libs", slots));
        platform_.tasks.back()->Started();
        platform_.messagings.back()->ReceiveText(QStringLiteral("text"));
        top_.Release(manager_);
      });
  Sweep<TAVORpcServerSlots>({0, Note<'s'>, Note<'m'>, Note<'r'>, this},
                            {"", "", "s", "sm", "smr", "smr"}, [this](TAVORpcServerSlots* slots) {
                              server_table_.Run(top_.GetRpcServer(manager_), slots);
                              platform_.messagings.back()->ReceiveText(QStringLiteral("text"));
                              top_.Release(manager_);
                            });
  Sweep<TAVOOpenUriSlot>({0, Note<'c'>, Note<'r'>, this}, {"", "", "c", "cr", "cr"},
                         [this](TAVOOpenUriSlot* slot) {
                           const auto intents = top_.GetIntentManager(manager_);
                           ASSERT_EQ(FORGE_RESULT_OK, intent_table_.OpenUri(intents, "u:", slot));
                           platform_.ReplyToIntent(0);
                         });
}

}  // namespace
