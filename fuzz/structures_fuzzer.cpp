// Structures that begin with their declared size, at any such size, with any of their fields null:
// those that callers and the embedder give, and those that are filled for callers. They lie in
// memory of exactly the declared size, where the address sanitizer sees every step beyond, or in
// more, where what lies beyond is set and must not count.
#include <algorithm>
#include <array>
#include <cstring>
#include <memory>
#include <type_traits>
#include <utility>
#include <vector>

#include "cw/plugin_registrar.h"
#include "fuzz/input.h"
#include "tests/support/fake_platform.h"
#include "wrapper/manager_wrapper.h"
#include "wrapper/rpc_client.h"
#include "wrapper/rpc_server.h"

namespace {

using Bytes = std::vector<uint8_t>;
using fuzz::Choices;

constexpr uint8_t kByte[] = {1};         // The value true.
constexpr size_t kWord = sizeof(void*);  // The room of a field; the declared size is the first.

uint32_t ChooseSize(Choices& choices, size_t full) {
  const uint32_t kind = choices.Below(4);
  if (kind == 0) return static_cast<uint32_t>(full);
  return kind == 1 ? choices.Below(0x10000) : choices.Below(static_cast<uint32_t>(full) + 16);
}

bool Covers(uint32_t size, size_t field) { return size >= (field + 1) * kWord; }

template <typename Structure>
constexpr size_t kFields = sizeof(Structure) / kWord;

template <typename Structure>
void* FieldOf(const Structure& structure, size_t field) {
  void* word = nullptr;
  std::memcpy(&word, reinterpret_cast<const char*>(&structure) + field * kWord, kWord);
  return word;
}

// The structure as somebody may declare it: a size, and some of the fields null.
template <typename Structure>
Structure Declare(Choices& choices, Structure structure) {
  const uint32_t size = ChooseSize(choices, sizeof structure);
  std::memcpy(static_cast<void*>(&structure), &size, sizeof size);
  const uint32_t kind = choices.Below(4);  // None is null, or one, or any.
  const size_t null = choices.Below(64);
  for (size_t field = 1; field < kFields<Structure>; ++field) {
    if (kind == 0 || (kind < 3 && field != null) || (kind == 3 && choices.Byte() % 4 != 0))
      continue;
    std::memset(reinterpret_cast<char*>(&structure) + field * kWord, 0, kWord);
  }
  return structure;
}

template <typename Structure>
Bytes Place(Choices& choices, const Structure& structure) {
  const auto* begin = reinterpret_cast<const uint8_t*>(&structure);
  uint32_t size = 0;
  std::memcpy(&size, begin, sizeof size);
  const bool is_exact = choices.Byte() % 2 == 0;
  return {begin, begin + (is_exact ? std::clamp(size_t{size}, sizeof size, sizeof structure)
                                   : sizeof structure)};
}

// ---- Filled for a caller --------------------------------------------------------------------

// Cleared as far as declared, the size always stored, and each field that is covered whole.
template <typename Structure, typename Fill>
void CheckFilled(Choices& choices, Fill fill) {
  Structure full{};
  fill(&full, static_cast<uint32_t>(sizeof full));
  const uint32_t size = ChooseSize(choices, sizeof full);
  Bytes memory(std::max(size_t{size}, sizeof size) + (choices.Byte() % 2 ? 16 : 0), 0xA5);
  Bytes expected = memory;
  std::fill_n(expected.begin(), size, 0);
  std::memcpy(expected.data(), &size, sizeof size);
  for (size_t field = 1; field < kFields<Structure> && Covers(size, field); ++field) {
    void* const word = FieldOf(full, field);
    FUZZ_CHECK(word);
    std::memcpy(expected.data() + field * kWord, &word, kWord);
  }
  fill(reinterpret_cast<Structure*>(memory.data()), size);
  FUZZ_CHECK(memory == expected);
}

// ---- Slots that a caller gives --------------------------------------------------------------

using Calls = std::vector<std::pair<size_t, void*>>;  // Of which field, with which user data.
Calls calls;

template <typename Argument>
void Answer(Argument) {}
void Answer(TAVOReplyIntentSlot* reply) { reply->release(reply->context); }

template <size_t kField, typename... Arguments>
void Note(void* user_data, Arguments... arguments) {
  calls.emplace_back(kField, user_data);
  (Answer(arguments), ...);
}

// `order` is that of the calls which the full structure gets.
template <typename Slots, typename Use>
void CheckSlots(Choices& choices, const Slots& full, std::initializer_list<size_t> order, Use use) {
  const Slots slots = Declare(choices, full);
  Bytes memory = Place(choices, slots);
  const auto given = [&slots](size_t field) {
    return Covers(slots.size, field) ? FieldOf(slots, field) : nullptr;
  };
  Calls expected;
  for (const size_t field : order) {
    if (given(field)) expected.emplace_back(field, given(kFields<Slots> - 1));
  }
  calls.clear();
  use(reinterpret_cast<Slots*>(memory.data()));
  FUZZ_CHECK(calls == expected);
}

// The service over the fake platform.
void CheckService(Choices& choices) {
  test::FakePlatform platform;
  TAVOProcTable top{};
  TAVORpcClientProcTable client_table{};
  TAVORpcServerProcTable server_table{};
  TAVOIntentManagerProcTable intent_table{};
  TAVOProcTableLoad(&top, sizeof top);
  top.RpcClientProcTableLoad(&client_table, sizeof client_table);
  top.RpcServerProcTableLoad(&server_table, sizeof server_table);
  top.IntentManagerProcTableLoad(&intent_table, sizeof intent_table);
  _TAVOManagerRef* const manager = top.Initialize();
  const uint32_t which = choices.Below(8);
  if (which == 0) CheckFilled<TAVOProcTable>(choices, TAVOProcTableLoad);
  if (which == 1) CheckFilled<TAVORpcClientProcTable>(choices, top.RpcClientProcTableLoad);
  if (which == 2) CheckFilled<TAVORpcServerProcTable>(choices, top.RpcServerProcTableLoad);
  if (which == 3) CheckFilled<TAVOIntentManagerProcTable>(choices, top.IntentManagerProcTableLoad);
  if (which == 4) {
    const TAVORpcClientSlots slots{0, Note<1>, Note<2>, Note<3>, Note<4>, &platform};
    CheckSlots(choices, slots, {1, 3, 2, 2, 4}, [&](TAVORpcClientSlots* given) {
      _TAVORpcClientRef* const client = top.CreateRpcClient(manager);
      FUZZ_CHECK(client_table.StartTask(client, "name", "/libs", given) == 0);
      platform.Task().Started();
      platform.Messaging().ReceiveText(QStringLiteral("text"));
      client_table.Release(client);
      platform.Task().Stopped();
    });
  }
  if (which == 5) {
    const TAVORpcServerSlots slots{0, Note<1>, Note<2>, Note<3>, &platform};
    CheckSlots(choices, slots, {1, 2, 3}, [&](TAVORpcServerSlots* given) {
      server_table.Run(top.GetRpcServer(manager), given);
      platform.Messaging().ReceiveText(QStringLiteral("text"));
      top.Release(manager);
    });
  }
  _TAVOIntentManagerRef* const intents = top.GetIntentManager(manager);
  if (which == 6) {
    const TAVOOpenUriSlot slot{0, Note<1>, Note<2>, &platform};
    CheckSlots(choices, slot, {1, 2}, [&](TAVOOpenUriSlot* given) {
      FUZZ_CHECK(intent_table.OpenUri(intents, "uri:", given) == 0);
      platform.ReplyToIntent(0);
    });
  }
  if (which == 7) {
    const TAVORegisterIntentSlot slot{0, Note<1>, Note<2>, &platform};
    CheckSlots(choices, slot, {1, 1, 2}, [&](TAVORegisterIntentSlot* given) {
      FUZZ_CHECK(intent_table.RegisterIntent(intents, "name", given) == 0);
      for (int i = 0; i < 2; ++i) platform.intents.begin()->second({}, [](const QJsonObject&) {});
      platform.intents.clear();
    });
  }
  top.Release(manager);
}

bool HasByte(const ForgeBufferView& view) {
  return Covers(view.struct_size, 2) && view.data && view.size == 1;
}

void CheckViews(Choices& choices) {
  CheckFilled<ForgeBufferView>(choices, [](ForgeBufferView* view, uint32_t size) {
    static const forge::Buffer buffer(kByte, 1);
    FUZZ_CHECK(buffer.ToCAPI(view, size) == FORGE_RESULT_OK);
  });
  const ForgeBufferView view = Declare(choices, ForgeBufferView{0, kByte, 1});
  Bytes memory = Place(choices, view);
  auto* const given = reinterpret_cast<ForgeBufferView*>(memory.data());
  const bool has_data = HasByte(view);
  FUZZ_CHECK(forge::Buffer::FromCAPI(given) == forge::Buffer(kByte, has_data ? 1 : 0));
  FUZZ_CHECK(cw::EncodableValue::Deserialize(given).IsNull() == !has_data);
}

// ---- Tables that are bound ------------------------------------------------------------------

// What entries fill in, as somebody has declared it.
template <typename Structure>
Structure declared;

// What an entry does with an argument, and answers.
template <typename Argument>
unsigned Take(Argument) {
  return 1;
}
#define FILL(Structure, answer) \
  unsigned Take(Structure* structure) { return *structure = declared<Structure>, answer; }
FILL(FlutterOstrelApplicationProcTable, 1)
FILL(FlutterOstrelViewProcTable, 1)
FILL(FlutterOstrelMessengerProcTable, 1)
FILL(FlutterOstrelTextureProcTable, 1)
FILL(FlutterOstrelOSVersion, 1)
FILL(FlutterOstrelEmbedderVersion, 1)
FILL(FlutterOstrelTheme, 0)
FILL(ForgeBufferView, 0)
FILL(TAVOIntentManagerProcTable, 0)
FILL(TAVORpcClientProcTable, 0)
FILL(TAVORpcServerProcTable, 0)
#undef FILL
template <typename Slot>
unsigned Release(const Slot* slot) {
  FUZZ_CHECK(slot->size == sizeof *slot);
  slot->release(slot->user_data);
  return 1;
}
unsigned Take(const FlutterOstrelSlot* slot) { return Release(slot); }
unsigned Take(const FlutterOstrelBoolSlot* slot) { return Release(slot); }

std::vector<size_t> entered;

bool HasEntered(size_t entry) {
  return std::find(entered.begin(), entered.end(), entry) != entered.end();
}

template <size_t kEntry, typename Result, typename... Arguments>
Result Enter(Arguments... arguments) {
  entered.push_back(kEntry);
  [[maybe_unused]] const unsigned answer = (Take(arguments) & ... & 1u);
  if constexpr (std::is_pointer_v<Result>) return reinterpret_cast<Result>(uintptr_t{1});
  if constexpr (std::is_arithmetic_v<Result>) return static_cast<Result>(answer);
}

// What enters an entry when some are covered and others are set; else it enters none.
template <typename Subject>
struct Operation {
  size_t entry;
  std::vector<size_t> covered;
  std::vector<size_t> set;
  void (*call)(Subject& subject, bool works);
};

template <typename Table, typename Subject>
struct Operations {
  Table full{};
  std::vector<Operation<Subject>> list;

  static const Operations& Get() {
    static const Operations operations = [] {
      Operations made;
      Describe(made);
      return made;
    }();
    return operations;
  }

  // On an object that was bound to the declared table.
  static void Check(Subject& subject) {
    const Table& table = declared<Table>;
    const auto is_set = [&](size_t entry) { return FieldOf(table, entry) != nullptr; };
    const auto is_covered = [&](size_t entry) {
      return is_set(entry) && Covers(table.size, entry);
    };
    for (const auto& each : Get().list) {
      const bool works = std::all_of(each.covered.begin(), each.covered.end(), is_covered) &&
                         std::all_of(each.set.begin(), each.set.end(), is_set);
      entered.clear();
      each.call(subject, works);
      FUZZ_CHECK(works ? HasEntered(each.entry) : entered.empty());
    }
  }
};

// Within Describe. Old entries need only be set, new ones must be covered.
#define INDEX(entry) (offsetof(decltype(made.full), entry) / kWord)
#define LIST(...) (std::vector<size_t>{__VA_ARGS__})
#define CALL(entry, covered, set, ...) \
  made.list.push_back(                 \
      {INDEX(entry), covered, set,     \
       []([[maybe_unused]] auto& subject, [[maybe_unused]] bool works) { __VA_ARGS__; }})
#define SET(entry) made.full.entry = Enter<INDEX(entry)>
#define OLD(entry, ...) SET(entry), CALL(entry, {}, LIST(INDEX(entry)), __VA_ARGS__)
#define NEW(entry, ...) SET(entry), CALL(entry, LIST(INDEX(entry)), {}, __VA_ARGS__)
#define PLAIN(entry) OLD(entry, subject.entry())

using Application = Operations<FlutterOstrelApplicationProcTable, cw::ApplicationWrapper>;
using View = Operations<FlutterOstrelViewProcTable, cw::ViewWrapper>;
using Messenger = Operations<FlutterOstrelMessengerProcTable, cw::BinaryMessenger>;
using Textures = Operations<FlutterOstrelTextureProcTable, cw::TextureRegistrar>;
using Top = Operations<TAVOProcTable, tavo::ManagerWrapper>;
using Intents = Operations<TAVOIntentManagerProcTable, tavo::IntentManager>;
using Client = Operations<TAVORpcClientProcTable, const std::shared_ptr<tavo::RpcClient::Table>>;
using Server = Operations<TAVORpcServerProcTable, const std::shared_ptr<tavo::RpcServer::Table>>;

template <typename Version, size_t kCount>
void CheckNumbers(const std::array<uint32_t, kCount>& numbers, bool works) {
  for (size_t i = 0; i < kCount; ++i) {
    const bool is_covered = works && declared<Version>.size >= (i + 2) * sizeof(uint32_t);
    FUZZ_CHECK(numbers[i] == (is_covered ? declared<Version>.numbers[i] : 0));
  }
}

void Describe(Application& made) {
  OLD(GetApplicationInfo, subject.GetApplicationInfo({}));
  OLD(GetDartEntryPointArgs, subject.GetDartEntryPointArgs());
  OLD(GetOSVersion, CheckNumbers<FlutterOstrelOSVersion>(subject.GetOSVersion(), works));
  OLD(GetEmbedderVersion,
      CheckNumbers<FlutterOstrelEmbedderVersion>(subject.GetEmbedderVersion(), works));
  OLD(EnqueueTask, subject.EnqueueTask(nullptr, 0));
  OLD(Exit, subject.Exit(0));
  OLD(GetPath, subject.GetPath({}));
  OLD(HasPermission, subject.HasPermission("any"));
  NEW(CreateMainWindow, subject.CreateMainWindow("", "", nullptr, nullptr));
}

void Describe(Messenger& made) {
  OLD(Send, subject.Send("", nullptr, 0, nullptr));
  OLD(SetMessageHandler, subject.SetMessageHandler("", nullptr));
  NEW(ChannelUpdateSubscribe, subject.OnChannelUpdateSubscribe("", nullptr));
  NEW(ChannelUpdateUnsubscribe, subject.OnChannelUpdateUnsubscribe("", 1));
}

void Describe(Textures& made) {
  static cw::Texture texture = cw::OpenGLTexture(nullptr);
  OLD(RegisterTexture, subject.RegisterTexture(&texture));
  OLD(UnregisterTexture, subject.UnregisterTexture(1, nullptr));
  SET(MarkTextureFrameAvailable);  // The test of the first entry stands for both.
  CALL(MarkTextureFrameAvailable, {}, LIST(INDEX(RegisterTexture)),
       subject.MarkTextureFrameAvailable(1));
}

// Of a pair of values that is not covered whole neither counts.
void CheckTheme(const cw::ViewWrapper::Theme& theme, bool works) {
  const auto& source = declared<FlutterOstrelTheme>;
  const size_t size = works ? source.size : 0;
  FUZZ_CHECK(theme.flag == (size < 8 || source.flag != 0));
  for (size_t i = 0; i < 4; ++i) {
    FUZZ_CHECK(theme.values[i] == (size >= (i < 2 ? 16 : 24) ? source.values[i] : 0));
    const bool has_text = size >= 24 + (i + 1) * kWord && source.texts[i];
    FUZZ_CHECK(theme.texts[i] == (has_text ? source.texts[i] : ""));
  }
}

#define HANDLE(entry) OLD(entry, subject.entry(&handle))
#define HANDLES(X)                                                                 \
  X(GetEGLConfig), X(GetEGLDisplay), X(GetNativeDisplay), X(GetEGLGetProcAddress), \
      X(GetEGLContextHandle), X(GetEGLOffscreenContextHandle)
#define QUERIES(X)                                                                             \
  X(GetDevicePixelRatio), X(GetWindowVisibility), X(MaximizeWindow), X(MinimizeWindow),        \
      X(GetWindowOrientation), X(GetWindowWidth), X(GetWindowHeight), X(GetDeviceOrientation), \
      X(IsKeyboardVisible), X(GetStatusbarVisibility), X(IsStatusbarVisible), X(Fullscreen),   \
      X(Activate), X(IsBackgroundVisible), X(GetWindowType)
#define SUBSCRIPTION(KIND, name)                                         \
  KIND(name##ChangedSubscribe, subject.name##ChangedSubscribe(nullptr)); \
  KIND(name##ChangedUnsubscribe, subject.name##ChangedUnsubscribe(1))
#define LOCKED(entry, ...)                                                                      \
  SET(entry), CALL(entry, LIST(INDEX(LockResources), INDEX(UnlockResources), INDEX(entry)), {}, \
                   __VA_ARGS__)

void Describe(View& made) {
  static void* handle;
  HANDLES(HANDLE);
  QUERIES(PLAIN);
  SUBSCRIPTION(OLD, WindowOrientation);
  SUBSCRIPTION(OLD, DeviceOrientation);
  SUBSCRIPTION(OLD, KeyboardVisibility);
  SUBSCRIPTION(NEW, WindowVisibility);
  SUBSCRIPTION(NEW, Theme);
  NEW(GetWindowVisibility, subject.GetWindowMode());
  OLD(SetStatusbarVisibility,
      subject.SetStatusbarVisibility(cw::ViewWrapper::StatusbarVisibility{1}));
  OLD(SetBackgroundVisible, subject.SetBackgroundVisible(true));
  NEW(CreatePopupWindow, subject.CreatePopupWindow("main", "", nullptr, nullptr));
  NEW(CloseWindow, subject.CloseWindow({}));
  SET(LockResources), SET(UnlockResources);
  LOCKED(GetTheme, CheckTheme(subject.GetTheme(), works));
  LOCKED(GetWindowPayload, FUZZ_CHECK(subject.GetWindowPayload().IsNull() ==
                                      !(works && HasByte(declared<ForgeBufferView>))));
}

void Describe(Top& made) {
  SET(Initialize), SET(Release), SET(GetIntentManager), SET(IntentManagerProcTableLoad);
  SET(CreateRpcClient), SET(RpcClientProcTableLoad), SET(GetRpcServer), SET(RpcServerProcTableLoad);
  CALL(GetIntentManager, LIST(INDEX(IntentManagerProcTableLoad)), LIST(INDEX(GetIntentManager)),
       FUZZ_CHECK(works == (subject.GetIntentManager() != nullptr)));
  CALL(CreateRpcClient, LIST(INDEX(CreateRpcClient), INDEX(RpcClientProcTableLoad)), {},
       subject.CreateIpcClient(""));
  CALL(GetRpcServer, LIST(INDEX(GetRpcServer), INDEX(RpcServerProcTableLoad)), {},
       subject.CreateRpcServer());
}

void Describe(Intents& made) {
  SET(RegisterIntent);
  NEW(OpenUri, subject.OpenUri("", nullptr));
}

void Describe(Client& made) {
  SET(StartTask), SET(UnlockResources), SET(SendMessage), SET(Release);
  CALL(StartTask, LIST(INDEX(SendMessage), INDEX(Release)),
       LIST(INDEX(StartTask), INDEX(UnlockResources)),
       auto* const ref = reinterpret_cast<_TAVORpcClientRef*>(1);
       FUZZ_CHECK(works == (tavo::RpcClient::Create(nullptr, "", subject, ref) != nullptr)));
}

void Describe(Server& made) {
  SET(Run), SET(UnlockResources), SET(SendMessage);
  CALL(Run, LIST(INDEX(Run), INDEX(SendMessage)), LIST(INDEX(UnlockResources)),
       auto* const ref = reinterpret_cast<_TAVORpcServerRef*>(1);
       const auto server = tavo::RpcServer::Create(nullptr, subject, ref);
       FUZZ_CHECK(works == (server != nullptr)); if (server) server->Run());
}

template <typename Structure>
void Vary(Choices& choices, const Structure& full) {
  declared<Structure> = Declare(choices, full);
}

// The embedder's context, and what it leads to.
void CheckEmbedder(Choices& choices) {
  Vary(choices, Application::Get().full);
  Vary(choices, View::Get().full);
  Vary(choices, Messenger::Get().full);
  Vary(choices, Textures::Get().full);
  declared<FlutterOstrelTextureProcTable>.MarkTextureFrameAvailable =
      Textures::Get().full.MarkTextureFrameAvailable;
  Vary(choices, FlutterOstrelOSVersion{0, {1, 2, 3, 4}});
  Vary(choices, FlutterOstrelEmbedderVersion{0, {1, 2, 3}});
  Vary(choices, FlutterOstrelTheme{0, 0, {1, 2, 3, 4}, {"a", "b", "c", "d"}});
  Vary(choices, ForgeBufferView{0, kByte, 1});

  static char handles[3];
  FlutterOstrelPluginContext context{};
  context.application = reinterpret_cast<_FlutterOstrelApplication*>(&handles[0]);
  context.engine = reinterpret_cast<_FlutterOstrelEngine*>(&handles[1]);
  context.view = reinterpret_cast<_FlutterOstrelView*>(&handles[2]);
  context.EngineDestroyedSubscribe = Enter<4>;
  context.ApplicationProcTableLoad = Enter<5>;
  context.ViewProcTableLoad = Enter<6>;
  context.TextureProcTableLoad = Enter<7>;
  context.MessengerProcTableLoad = Enter<8>;
  _FlutterOstrelEngine* const engine = context.engine;
  context = Declare(choices, context);
  const auto has = [&](size_t field) {
    return Covers(context.size, field) && FieldOf(context, field);
  };
  Bytes memory = Place(choices, context);
  entered.clear();
  auto* const registrar = cw::PluginRegistrarManager::GetInstance()->GetRegistrarImpl(
      reinterpret_cast<FlutterOstrelPluginContext*>(memory.data()));
  memory = Bytes();  // It was borrowed.
  FUZZ_CHECK((registrar != nullptr) == has(2));
  if (!registrar) return;
  FUZZ_CHECK(HasEntered(4) == has(4));
  FUZZ_CHECK((registrar->GetApplication() != nullptr) == (has(1) && has(5)));
  FUZZ_CHECK((registrar->GetView() != nullptr) == (has(3) && has(6)));
  FUZZ_CHECK((registrar->GetTextures() != nullptr) == has(7));
  FUZZ_CHECK((registrar->GetMessenger() != nullptr) == has(8));
  if (registrar->GetApplication()) Application::Check(*registrar->GetApplication());
  if (registrar->GetView()) View::Check(*registrar->GetView());
  if (registrar->GetTextures()) Textures::Check(*registrar->GetTextures());
  if (registrar->GetMessenger()) Messenger::Check(*registrar->GetMessenger());
  cw::PluginRegistrarManager::OnRegistrarDestroyed(engine);
}

// A service that is loaded.
void CheckLoaded(Choices& choices) {
  static const std::filesystem::path path = TAVO_FUZZ_SERVICE_LIBRARY;
  static const auto library = forge::Library::Create(path);
  static auto* const top = static_cast<TAVOProcTable*>(library->ResolveImpl("test_table"));
  Vary(choices, Top::Get().full);
  Vary(choices, Intents::Get().full);
  Vary(choices, Client::Get().full);
  Vary(choices, Server::Get().full);
  *top = declared<TAVOProcTable>;
  auto manager = tavo::ManagerWrapper::Create(nullptr, path.parent_path());
  FUZZ_CHECK((manager != nullptr) == (Covers(top->size, 1) && top->Initialize));
  if (manager) {
    Top::Check(*manager);
    if (const auto intents = manager->GetIntentManager()) Intents::Check(*intents);
    entered.clear();
    manager.reset();
    FUZZ_CHECK(HasEntered(2) == (top->Release != nullptr));
  }
  Client::Check(tavo::RpcClient::Table::Create(library, Enter<0>));
  Server::Check(tavo::RpcServer::Table::Create(library, Enter<0>));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  constexpr void (*kChecks[])(Choices&) = {CheckService, CheckViews, CheckEmbedder, CheckLoaded};
  const fuzz::Limits limits;
  Choices choices(data, size);
  kChecks[choices.Below(4)](choices);
  FUZZ_CHECK(limits.WereKept());
  return 0;
}
