// Embedders of every age: the objects over their tables do what declared sizes and set entries
// allow, and log what they lack. Every size is tried, and each field null once.
#include "tests/support/declared_sizes.h"

#include "cw/plugin_registrar.h"
#include "tests/support/fake_embedder.h"

namespace {

using cw::ApplicationWrapper;
using cw::BinaryMessenger;
using cw::TextureRegistrar;
using cw::ViewWrapper;

// Older entries need only be set; newer ones must be covered, and are logged where they are not.
constexpr bool kOld = false;
constexpr bool kNew = true;

// The entries of a table that a trace names.
// clang-format off
#define BEGIN(name) \
  [[maybe_unused]] std::vector<test::Need> FindEntries(const TABLE&, bool is_new, const std::string& trace) { \
    std::vector<test::Need> entries;
#define FIELD(index, field, type)
#define ENTRY(index, field, ...) \
    if (trace.find(#field "(") != std::string::npos) entries.push_back({index, #field, is_new});
#define END(count) return entries; }
#include "platform/flutter_ostrel/embedder_entries.inc"
// clang-format on

// One operation of an object over a table: what it calls, which it needs, too; its result, with and
// without that; and its error line, if that does not name the entry.
template <typename Wrapper>
struct Operation {
  bool is_new;
  std::string trace;
  std::function<std::string(Wrapper&)> call;
  std::string result = "";
  std::string neutral = "";
  std::string line = "";
};
#define DO(...) [](auto& w) { return __VA_ARGS__, ""; }
#define GET(...) [](auto& w) { return testing::PrintToString(__VA_ARGS__); }

class DeclaredSizesTest : public test::EmbedderTest {
 protected:
  // Has the table declared in every way and tries each operation on it.
  template <typename Wrapper, typename Table>
  void Check(Table* table, const std::vector<Operation<Wrapper>>& operations,
             size_t never_null = 0) {
    std::string traces;
    for (const auto& operation : operations) traces += operation.trace;
    EXPECT_EQ(test::kFields<Table>, 1 + FindEntries(*table, kOld, traces).size())
        << "Whoever appends an entry shows here what uses it.";
    test::ForEachDeclaration(Table(*table), [&](const Table& declared, size_t null) {
      if (null == never_null && null > 0) return;
      *table = declared;
      const auto wrapper = Wrapper::Create(embedder_.GetContext());
      embedder_.TakeTrace();
      std::vector<std::string> lines;
      for (const auto& operation : operations) {
        const auto entries = FindEntries(declared, operation.is_new, operation.trace);
        const std::string lack = test::FindLack(declared, entries);
        EXPECT_EQ(lack.empty() ? operation.result : operation.neutral, operation.call(*wrapper));
        EXPECT_EQ(lack.empty() ? operation.trace : "", embedder_.TakeTrace());
        if (lack.empty() || (!operation.is_new && operation.line.empty())) continue;
        lines.push_back(operation.line.empty() ? lack : "[error] " + operation.line);
      }
      EXPECT_EQ(lines, log_.TakeLines());
    });
  }
};

TEST_F(DeclaredSizesTest, Application) {
  const char kNoPermissions[] =
      "Current embedder version does not support HasPermission() method. Please, update flutter "
      "cache by removing `flutter/bin/cache` directory and running `flutter precache` command.";
  const std::vector<Operation<ApplicationWrapper>> operations = {
      {kOld, "GetApplicationInfo(application, 2, 0) GetApplicationInfo(application, 2, 5)",
       GET(w.GetApplicationInfo(ApplicationWrapper::InfoType{2})), "\"text\"", "\"\""},
      {kOld, "GetDartEntryPointArgs(application)", GET(w.GetDartEntryPointArgs()),
       "{ \"one\", \"two\" }", "{}"},
      {kOld, "GetOSVersion()", GET(w.GetOSVersion()), "{ 1, 2, 3, 4 }", "{ 0, 0, 0, 0 }"},
      {kOld, "GetEmbedderVersion()", GET(w.GetEmbedderVersion()), "{ 1, 2, 3 }", "{ 0, 0, 0 }"},
      {kOld, "EnqueueTask(application, 7)", DO(w.EnqueueTask([] {}, 7))},
      {kOld, "EnqueueTask(application, 7)", DO(w.Invoke([] {}, 7))},
      {kOld, "Exit(application, 3)", DO(w.Exit(3))},
      {kOld, "GetPath(application, 1, 0) GetPath(application, 1, 5)",
       GET(w.GetLibraryPath("foo").string()), "\"text/libfoo.so\"", "\"libfoo.so\""},
      {kOld, "HasPermission(application, Camera)", GET(w.HasPermission(cw::Permission::kCamera)),
       "true", "false", kNoPermissions},
      {kNew, "CreateMainWindow(application, a, b, 0, null)",
       GET(w.CreateMainWindow("a", "b", nullptr, nullptr)), "true", "false"},
  };
  embedder_.answers = {{"CreateMainWindow", 0}};
  Check(&embedder_.application, operations);
}

bool GivesHandle(const ViewWrapper& view, void (ViewWrapper::*entry)(void**) const) {
  void* handle = &handle;
  (view.*entry)(&handle);
  (view.*entry)(nullptr);  // Ignored.
  return handle != nullptr;
}

// Rows of the view.
#define HANDLE(entry) \
  kOld, #entry "(view)", GET(GivesHandle(w, &ViewWrapper::entry)), "true", "false"
#define NUMBER(entry, result) kOld, #entry "(view)", GET(static_cast<int>(w.entry())), result, "0"
#define PLAIN(entry) kOld, #entry "(view)", DO(w.entry())
#define SUBSCRIBE(age, entry) age, #entry "(view)", GET(w.entry(nullptr)), "1", "0"
#define UNSUBSCRIBE(age, entry) age, #entry "(view, 5)", DO(w.entry(5))

TEST_F(DeclaredSizesTest, View) {
  const std::vector<Operation<ViewWrapper>> operations = {
      {HANDLE(GetEGLConfig)},
      {HANDLE(GetEGLDisplay)},
      {HANDLE(GetNativeDisplay)},
      {HANDLE(GetEGLGetProcAddress)},
      {HANDLE(GetEGLContextHandle)},
      {HANDLE(GetEGLOffscreenContextHandle)},
      {kOld, "GetDevicePixelRatio(view)", GET(w.GetDevicePixelRatio()), "2", "1"},
      {NUMBER(GetWindowVisibility, "3")},
      {kNew, "GetWindowVisibility(view)", GET(w.GetWindowMode()), "true", "false"},
      {SUBSCRIBE(kNew, WindowVisibilityChangedSubscribe)},
      {UNSUBSCRIBE(kNew, WindowVisibilityChangedUnsubscribe)},
      {PLAIN(MaximizeWindow)},
      {PLAIN(MinimizeWindow)},
      {NUMBER(GetWindowOrientation, "90")},
      {SUBSCRIBE(kOld, WindowOrientationChangedSubscribe)},
      {UNSUBSCRIBE(kOld, WindowOrientationChangedUnsubscribe)},
      {NUMBER(GetWindowWidth, "1")},
      {NUMBER(GetWindowHeight, "1")},
      {NUMBER(GetDeviceOrientation, "270")},
      {SUBSCRIBE(kOld, DeviceOrientationChangedSubscribe)},
      {UNSUBSCRIBE(kOld, DeviceOrientationChangedUnsubscribe)},
      {NUMBER(IsKeyboardVisible, "1")},
      {SUBSCRIBE(kOld, KeyboardVisibilityChangedSubscribe)},
      {UNSUBSCRIBE(kOld, KeyboardVisibilityChangedUnsubscribe)},
      {kOld, "SetStatusbarVisibility(view, 2)",
       GET(w.SetStatusbarVisibility(ViewWrapper::StatusbarVisibility{2})), "true", "false"},
      {NUMBER(GetStatusbarVisibility, "1")},
      {NUMBER(IsStatusbarVisible, "1")},
      {PLAIN(Fullscreen)},
      {PLAIN(Activate)},
      {NUMBER(IsBackgroundVisible, "1")},
      {kOld, "SetBackgroundVisible(view, 1)", DO(w.SetBackgroundVisible(true))},
      {NUMBER(GetWindowType, "1")},
      {kNew, "LockResources(view) GetTheme(view, 7) UnlockResources(view, 7)",
       GET(w.GetTheme().flag), "false", "true"},
      {SUBSCRIBE(kNew, ThemeChangedSubscribe)},
      {UNSUBSCRIBE(kNew, ThemeChangedUnsubscribe)},
      {kNew, "LockResources(view) GetWindowPayload(view, 7) UnlockResources(view, 7)",
       GET(w.GetWindowPayload().IsNull()), "false", "true"},
      {kNew, "CreatePopupWindow(view, entry, text, 0, null)",
       DO(w.CreatePopupWindow("entry", "text", nullptr, nullptr)), "", "",
       "Method \"CreatePopupWindow()\" is not provided by the loaded API."},
      {kNew, "CloseWindow(view, { 1 })", DO(w.CloseWindow(true))},
  };
  embedder_.answers = {{"GetDevicePixelRatio", 2},   {"GetWindowVisibility", 3},
                       {"GetWindowOrientation", 90}, {"GetDeviceOrientation", 270},
                       {"LockResources", 7},         {"GetTheme", 0},
                       {"GetWindowPayload", 0}};
  embedder_.payload = {1};
  Check(&embedder_.view, operations);
}

TEST_F(DeclaredSizesTest, Messenger) {
  const std::string missing = "' is not provided by the loaded API.";
  const std::vector<Operation<BinaryMessenger>> operations = {
      {kOld, "Send(engine, c, 0)", DO(w.Send("c", nullptr, 7, nullptr))},
      {kOld, "Send(engine, c, 0)", DO(w.Send("c", nullptr, 7, [](auto...) {}))},
      {kOld, "SetMessageHandler(engine, c, 1)", DO(w.SetMessageHandler("c", [](auto...) {}))},
      {kNew, "ChannelUpdateSubscribe(engine, c)", GET(w.OnChannelUpdateSubscribe("c", nullptr)),
       "1", "0", "Method 'OnChannelUpdateSubscribe" + missing},
      {kNew, "ChannelUpdateUnsubscribe(engine, c, 5)", DO(w.OnChannelUpdateUnsubscribe("c", 5)), "",
       "", "Method 'OnChannelUpdateUnsubscribe" + missing},
  };
  Check(&embedder_.messenger, operations);
}

// The test of the first entry stands for marking, too: they came together. So that is never null.
TEST_F(DeclaredSizesTest, Textures) {
  static cw::Texture texture = cw::OpenGLTexture(nullptr);
  using Results = std::pair<int64_t, bool>;
  const std::vector<Operation<TextureRegistrar>> operations = {
      {kOld, "RegisterTexture(engine, 1) MarkTextureFrameAvailable(engine, 8)",
       GET(Results{w.RegisterTexture(&texture), w.MarkTextureFrameAvailable(8)}), "(1, true)",
       "(-1, false)"},
      {kOld, "UnregisterTexture(engine, 6)", GET(w.UnregisterTexture(6, nullptr)), "true", "false"},
  };
  Check(&embedder_.texture, operations, 3);
}

TEST_F(DeclaredSizesTest, Context) {
  using Table = FlutterOstrelPluginContext;
  ASSERT_EQ(9u, test::kFields<Table>);  // Whoever appends a field shows here what uses it.
  auto* const registrars = cw::PluginRegistrarManager::GetInstance();
  _FlutterOstrelEngine* const engine = embedder_.context.engine;
  test::ForEachDeclaration(Table(embedder_.context), [&](const Table& declared, size_t) {
    embedder_.context = declared;
    const auto has = [&](auto... needs) { return test::FindLack(declared, {needs...}).empty(); };
    auto* const registrar = registrars->GetRegistrarImpl(embedder_.GetContext(declared.size));
    EXPECT_EQ(has(TEST_COVERED(engine)), registrar != nullptr);
    if (!registrar) return;
    EXPECT_EQ(has(TEST_COVERED(EngineDestroyedSubscribe)),
              std::exchange(embedder_.engine_destroyed, nullptr) != nullptr);
    EXPECT_EQ(has(TEST_COVERED(application), TEST_COVERED(ApplicationProcTableLoad)),
              registrar->GetApplication() != nullptr);
    EXPECT_EQ(has(TEST_COVERED(view), TEST_COVERED(ViewProcTableLoad)),
              registrar->GetView() != nullptr);
    EXPECT_EQ(has(TEST_COVERED(TextureProcTableLoad)), registrar->GetTextures() != nullptr);
    EXPECT_EQ(has(TEST_COVERED(MessengerProcTableLoad)), registrar->GetMessenger() != nullptr);
    EXPECT_EQ(registrar->GetApplication() ? "text" : "", registrar->GetLibraryPath());
    cw::PluginRegistrarManager::OnRegistrarDestroyed(engine);
  });
}

// What the embedder fills in may be smaller than what it was asked for. The theme's numbers came in
// pairs: of a pair that is not covered whole neither counts.
TEST_F(DeclaredSizesTest, FilledStructures) {
  const auto application = ApplicationWrapper::Create(embedder_.GetContext());
  const auto view = ViewWrapper::Create(embedder_.GetContext());
  embedder_.answers["GetTheme"] = 0;
  embedder_.theme.texts[1] = nullptr;
  for (uint32_t size = 0; size <= sizeof(FlutterOstrelTheme) + 16; ++size) {
    SCOPED_TRACE(size);
    const auto at = [size](uint32_t end, uint32_t value) { return size >= end ? value : 0; };
    embedder_.os_version.size = embedder_.embedder_version.size = embedder_.theme.size = size;
    EXPECT_EQ((ApplicationWrapper::OSVersion{at(8, 1), at(12, 2), at(16, 3), at(20, 4)}),
              application->GetOSVersion());
    EXPECT_EQ((ApplicationWrapper::EmbedderVersion{at(8, 1), at(12, 2), at(16, 3)}),
              application->GetEmbedderVersion());
    const ViewWrapper::Theme theme = view->GetTheme();
    EXPECT_EQ(size < 8, theme.flag);
    EXPECT_EQ((std::array<uint32_t, 4>{at(16, 1), at(16, 2), at(24, 3), at(24, 4)}), theme.values);
    for (size_t i = 0; i < 4; ++i) {
      const bool is_given = size >= 24 + (i + 1) * sizeof(char*) && i != 1;
      EXPECT_EQ(is_given ? std::string(1, "abcd"[i]) : "", theme.texts[i]);
    }
  }
  embedder_.answers = {{"GetTheme", 1}, {"GetOSVersion", 0}};  // Failed, whatever was filled in.
  EXPECT_TRUE(view->GetTheme().flag);
  EXPECT_EQ(ApplicationWrapper::OSVersion{}, application->GetOSVersion());
}

TEST_F(DeclaredSizesTest, Payload) {
  static ForgeBufferView filled;
  embedder_.view.GetWindowPayload = [](auto*, uint32_t, ForgeBufferView* payload, uint32_t) {
    *payload = filled;
    return 0u;
  };
  const auto view = ViewWrapper::Create(embedder_.GetContext());
  const uint8_t encoded = 1;
  test::PageEnd page_end;
  test::ForEachDeclaration(ForgeBufferView{0, &encoded, 1}, [&](const auto& declared, size_t null) {
    const bool is_given = test::Covers(declared.struct_size, 2) && null == 0;
    ForgeBufferView* const given = page_end.Place(declared);
    EXPECT_EQ(!is_given, cw::EncodableValue::Deserialize(given).IsNull());
    EXPECT_EQ(is_given ? 1u : 0u, forge::Buffer::FromCAPI(given).GetSize());
    filled = declared;
    EXPECT_EQ(!is_given, view->GetWindowPayload().IsNull());
  });
}

}  // namespace
