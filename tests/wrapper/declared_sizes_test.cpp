// The service's C interface between callers and libraries of every age: tables and views are filled
// as far as they are declared, slots count as far as they are declared, and objects over a table
// want what they use. Every size is tried, and each field null once.
#include "tests/support/declared_sizes.h"

#include "forge/buffer.h"
#include "tests/support/fake_platform.h"
#include "tests/support/log_capture.h"
#include "tests/support/test_base.h"
#include "wrapper/manager_wrapper.h"
#include "wrapper/rpc_client.h"
#include "wrapper/rpc_server.h"

namespace {

using test::Covers;
using test::FieldOf;
using test::kFields;
using Lines = std::vector<std::string>;

// The calls of a structure's functions: which field, with which user data.
using Calls = std::vector<std::pair<size_t, void*>>;
Calls calls;

class ServiceSizesTest : public test::TestBase {
 protected:
  void SetUp() override {
    TestBase::SetUp();
    calls.clear();
    TAVOProcTableLoad(&top_, sizeof top_);
    top_.RpcClientProcTableLoad(&client_, sizeof client_);
    top_.RpcServerProcTableLoad(&server_, sizeof server_);
    top_.IntentManagerProcTableLoad(&intents_, sizeof intents_);
  }

  test::LogCapture log_;
  TAVOProcTable top_{};
  TAVORpcClientProcTable client_{};
  TAVORpcServerProcTable server_{};
  TAVOIntentManagerProcTable intents_{};
};

// ---- Filled for a caller ------------------------------------------------------------------------

// Cleared as far as declared, the size always stored, each field that is covered whole, and
// nothing beyond.
template <typename Structure, typename Fill>
void CheckFilled(Fill fill) {
  Structure full{};
  fill(&full, static_cast<uint32_t>(sizeof full));
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
    fill(reinterpret_cast<Structure*>(memory.data()), size);
    EXPECT_EQ(expected, memory) << size;
  }
}

TEST_F(ServiceSizesTest, TablesAndViewsAreFilledAsFarAsDeclared) {
  CheckFilled<TAVOProcTable>(TAVOProcTableLoad);
  CheckFilled<TAVORpcClientProcTable>(top_.RpcClientProcTableLoad);
  CheckFilled<TAVORpcServerProcTable>(top_.RpcServerProcTableLoad);
  CheckFilled<TAVOIntentManagerProcTable>(top_.IntentManagerProcTableLoad);
  const forge::Buffer buffer(std::vector<uint8_t>{1});
  CheckFilled<ForgeBufferView>(
      [&](ForgeBufferView* view, uint32_t size) { buffer.ToCAPI(view, size); });
}

// ---- Slots that a caller gives ------------------------------------------------------------------

template <typename Argument>
void Answer(Argument) {}
void Answer(TAVOReplyIntentSlot* reply) { reply->release(reply->context); }
void Answer(TAVOOpenUriSlot* slot) { slot->release(slot->user_data); }

template <size_t kField, typename... Arguments>
void Note(void* user_data, Arguments... arguments) {
  calls.emplace_back(kField, user_data);
  (Answer(arguments), ...);
}

// `order` is that of the calls which the full structure gets.
template <typename Slots, typename Use>
void CheckSlots(const TAVOProcTable& top, const Slots& full, std::initializer_list<size_t> order,
                Use use) {
  test::PageEnd page_end;
  test::ForEachDeclaration(full, [&](Slots declared, size_t) {
    for (Slots* given : {page_end.Place(declared), &declared}) {
      test::FakePlatform platform;
      const auto find = [&](size_t field) {
        return Covers(declared.size, field) ? FieldOf(declared, field) : nullptr;
      };
      Calls expected;
      for (const size_t field : order) {
        if (find(field)) expected.emplace_back(field, find(kFields<Slots> - 1));
      }
      calls.clear();
      _TAVOManagerRef* const manager = top.Initialize();
      use(platform, manager, given);
      top.Release(manager);
      EXPECT_EQ(expected, calls);
    }
  });
}

TEST_F(ServiceSizesTest, SlotsCountAsFarAsDeclared) {
  int data = 0;
  const TAVORpcClientSlots client{0, Note<1>, Note<2>, Note<3>, Note<4>, &data};
  CheckSlots(top_, client, {1, 3, 2, 2, 4}, [&](auto& platform, auto* manager, auto* given) {
    _TAVORpcClientRef* const ref = top_.CreateRpcClient(manager);
    EXPECT_EQ(FORGE_RESULT_OK, client_.StartTask(ref, "name", "/libs", given));
    platform.Task().Started();
    platform.Messaging().ReceiveText(QStringLiteral("text"));
    client_.Release(ref);
    platform.Task().Stopped();
  });
  const TAVORpcServerSlots server{0, Note<1>, Note<2>, Note<3>, &data};
  CheckSlots(top_, server, {1, 2, 3}, [&](auto& platform, auto* manager, auto* given) {
    server_.Run(top_.GetRpcServer(manager), given);
    platform.Messaging().ReceiveText(QStringLiteral("text"));
  });
  const TAVOOpenUriSlot open{0, Note<1>, Note<2>, &data};
  CheckSlots(top_, open, {1, 2}, [&](auto& platform, auto* manager, auto* given) {
    EXPECT_EQ(FORGE_RESULT_OK, intents_.OpenUri(top_.GetIntentManager(manager), "uri:", given));
    platform.ReplyToIntent(0);
  });
  const TAVORegisterIntentSlot offer{0, Note<1>, Note<2>, &data};
  CheckSlots(top_, offer, {1, 1, 2}, [&](auto& platform, auto* manager, auto* given) {
    _TAVOIntentManagerRef* const ref = top_.GetIntentManager(manager);
    EXPECT_EQ(FORGE_RESULT_OK, intents_.RegisterIntent(ref, "name", given));
    for (int i = 0; i < 2; ++i) platform.intents.begin()->second({}, [](const QJsonObject&) {});
    platform.intents.clear();
  });
}

// ---- Tables that are bound ----------------------------------------------------------------------

// An entry that writes down its place and answers a handle, or success.
template <size_t kField, typename Result, typename... Arguments>
Result Enter(Arguments... arguments) {
  calls.emplace_back(kField, nullptr);
  (Answer(arguments), ...);
  if constexpr (std::is_pointer_v<Result>) return reinterpret_cast<Result>(uintptr_t{1});
  if constexpr (std::is_arithmetic_v<Result>) return FORGE_RESULT_OK;
}
bool IsEntered(size_t field) {
  return std::find(calls.begin(), calls.end(), std::pair<size_t, void*>(field, nullptr)) !=
         calls.end();
}

// Every entry is such a one.
const TAVOProcTable kTop{sizeof kTop, Enter<1>, Enter<2>, Enter<3>, Enter<4>,
                         Enter<5>,    Enter<6>, Enter<7>, Enter<8>};
const TAVOIntentManagerProcTable kIntents{sizeof kIntents, Enter<1>, Enter<2>};
const TAVORpcClientProcTable kClient{sizeof kClient, Enter<1>, Enter<2>, Enter<3>, Enter<4>};
const TAVORpcServerProcTable kServer{sizeof kServer, Enter<1>, Enter<2>, Enter<3>};

class BoundTableTest : public test::TestBase {
 protected:
  template <typename Table>
  std::unique_ptr<forge::LibraryApi<Table>> Bind(const Table& table) {
    static Table source;
    source = table;
    return forge::LibraryApi<Table>::Create(
        library_, [](Table* target, unsigned int) { return *target = source, FORGE_RESULT_OK; });
  }

  // It was made, or the line tells what it lacks.
  template <typename Table>
  void ExpectMade(bool is_made, const Table& declared, const std::vector<test::Need>& needs) {
    const std::string lack = FindLack(declared, needs);
    EXPECT_EQ(lack.empty(), is_made);
    EXPECT_EQ(lack.empty() ? Lines{} : Lines{lack}, log_.TakeLines());
  }

  test::LogCapture log_;
  std::shared_ptr<forge::Library> library_ = forge::Library::Create(TAVO_TEST_SERVICE_LIBRARY);
};

TEST_F(BoundTableTest, ManagerMakesWhatItsTableOffers) {
  using Table = TAVOProcTable;
  auto* const top = static_cast<TAVOProcTable*>(library_->ResolveImpl("test_table"));
  TAVOProcTable full = kTop;
  full.IntentManagerProcTableLoad = [](auto* table, auto) { return *table = kIntents, 0u; };
  full.RpcClientProcTableLoad = [](auto* table, auto) { return *table = kClient, 0u; };
  full.RpcServerProcTableLoad = [](auto* table, auto) { return *table = kServer, 0u; };
  test::ForEachDeclaration(full, [&](const TAVOProcTable& declared, size_t) {
    *top = declared;
    auto manager = tavo::ManagerWrapper::Create(nullptr, library_->GetPath().parent_path());
    ExpectMade(manager != nullptr, declared, {TEST_COVERED(Initialize)});
    if (!manager) return;
    ExpectMade(manager->GetIntentManager() != nullptr, declared,
               {TEST_COVERED(IntentManagerProcTableLoad), TEST_SET(GetIntentManager)});
    ExpectMade(manager->CreateIpcClient("") != nullptr, declared,
               {TEST_COVERED(CreateRpcClient), TEST_COVERED(RpcClientProcTableLoad)});
    ExpectMade(manager->CreateRpcServer() != nullptr, declared,
               {TEST_COVERED(GetRpcServer), TEST_COVERED(RpcServerProcTableLoad)});
    calls.clear();
    manager.reset();
    EXPECT_EQ(declared.Release != nullptr, IsEntered(2));
  });
}

TEST_F(BoundTableTest, ObjectsWantWhatTheyUse) {
  test::ForEachDeclaration(kClient, [&](const TAVORpcClientProcTable& declared, size_t) {
    using Table = TAVORpcClientProcTable;
    calls.clear();
    auto* const ref = reinterpret_cast<_TAVORpcClientRef*>(1);
    const bool is_made = tavo::RpcClient::Create(nullptr, "", Bind(declared), ref) != nullptr;
    ExpectMade(is_made, declared,
               {TEST_COVERED(SendMessage), TEST_SET(StartTask), TEST_SET(UnlockResources),
                TEST_COVERED(Release)});
    EXPECT_EQ(is_made ? 2u : 0u, calls.size());  // StartTask and Release.
  });
  test::ForEachDeclaration(kServer, [&](const TAVORpcServerProcTable& declared, size_t) {
    using Table = TAVORpcServerProcTable;
    auto* const ref = reinterpret_cast<_TAVORpcServerRef*>(1);
    ExpectMade(tavo::RpcServer::Create(nullptr, Bind(declared), ref) != nullptr, declared,
               {TEST_COVERED(Run), TEST_COVERED(SendMessage), TEST_SET(UnlockResources)});
  });
  test::ForEachDeclaration(kIntents, [&](const TAVOIntentManagerProcTable& declared, size_t) {
    using Table = TAVOIntentManagerProcTable;
    calls.clear();
    auto* const ref = reinterpret_cast<_TAVOIntentManagerRef*>(1);
    tavo::IntentManager::Create(Bind(declared), ref)->OpenUri("", nullptr);
    ExpectMade(IsEntered(1), declared, {TEST_COVERED(OpenUri)});
  });
}

// Nothing is made without a table or without a handle.
TEST_F(BoundTableTest, ObjectsWantATableAndAHandle) {
  EXPECT_FALSE(tavo::RpcClient::Create(nullptr, "", nullptr, nullptr));
  EXPECT_FALSE(tavo::RpcClient::Create(nullptr, "", Bind(kClient), nullptr));
  EXPECT_FALSE(tavo::RpcServer::Create(nullptr, nullptr, nullptr));
  EXPECT_FALSE(tavo::RpcServer::Create(nullptr, Bind(kServer), nullptr));
  EXPECT_FALSE(tavo::IntentManager::Create(nullptr, nullptr));
  EXPECT_FALSE(tavo::IntentManager::Create(Bind(kIntents), nullptr));
}

}  // namespace
