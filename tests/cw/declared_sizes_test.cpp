// Embedders of every age: the objects over their tables do what declared sizes and set entries
// allow, and log what they lack. Every size is tried, and each field null once.
#include "tests/support/declared_sizes.h"

#include "cw/plugin_registrar.h"
#include "tests/support/fake_embedder.h"
#include "tests/support/test_base.h"

namespace {

using cw::ApplicationWrapper;
using cw::BinaryMessenger;
using cw::EncodableValue;
using cw::TextureRegistrar;
using cw::ViewWrapper;
using test::Covers;
using Lines = std::vector<std::string>;

// The names of a table's fields, from the list.
template <typename Table>
Lines NamesOf();
// clang-format off
#define BEGIN(name) template <> Lines NamesOf<TABLE>() { return {"",
#define FIELD(index, field, type) #field,
#define ENTRY(index, field, ...) #field,
#define END(count) }; }
#include "platform/flutter_ostrel/embedder_entries.inc"
// clang-format on

// One operation of an object over a table: what it needs, which error line it writes without that
// (none, one of its own, or the one that names the entry), and what it calls, with the arguments.
template <typename Wrapper>
struct Operation {
  std::vector<test::Need> needs;
  std::string line;
  std::string trace;
  std::function<std::string(Wrapper&)> call;
  std::string result = "";
  std::string neutral = "";  // The result where something is missing.
};
const char kNamesTheEntry[] = "names the entry";

class DeclaredSizesTest : public test::TestBase {
 protected:
  // Has the table declared in every way and tries each operation on it. The entry `never_null`
  // (0: none) is not looked at.
  template <typename Wrapper, typename Table>
  void CheckEachDeclaration(Table* table, const std::vector<Operation<Wrapper>>& operations,
                            size_t never_null = 0) {
    CheckAllAreUsed<Table>(operations);
    const Table full = *table;
    test::ForEachDeclaration(full, [&](const Table& declared, size_t null) {
      if (null == never_null && null > 0) return;
      *table = declared;
      const auto wrapper = Wrapper::Create(embedder_.GetContext());
      ASSERT_TRUE(wrapper);
      embedder_.TakeTrace();
      Lines lines;
      for (const auto& operation : operations) {
        const std::string lack = test::FindLack(declared, operation.needs);
        const bool works = lack.empty();
        EXPECT_EQ(works ? operation.result : operation.neutral, operation.call(*wrapper));
        EXPECT_EQ(works ? operation.trace : "", embedder_.TakeTrace());
        if (works || operation.line.empty()) continue;
        lines.push_back(operation.line == kNamesTheEntry ? lack : "[error] " + operation.line);
      }
      EXPECT_EQ(lines, log_.TakeLines());
    });
    *table = full;
  }

  // Whoever appends an entry shows here what uses it.
  template <typename Table, typename Wrapper>
  static void CheckAllAreUsed(const std::vector<Operation<Wrapper>>& operations) {
    Lines unused = NamesOf<Table>();
    for (const auto& operation : operations) {
      for (size_t field = 1; field < unused.size(); ++field) {
        if (operation.trace.find(unused[field] + "(") != std::string::npos) unused[field].clear();
      }
    }
    EXPECT_EQ(Lines(unused.size()), unused);
  }

  test::LogCapture log_;
  test::FakeEmbedder embedder_;
  test::PageEnd page_end_;
};

// Older entries need only be set, newer ones must be covered and are logged.
#define OLD(entry, arguments) {TEST_SET(entry)}, "", #entry "(" arguments ")"
#define NEW(entry, arguments) {TEST_COVERED(entry)}, kNamesTheEntry, #entry "(" arguments ")"

template <typename Number>
std::string Text(Number number) {
  return std::to_string(static_cast<int>(number));
}

template <typename Numbers>
std::string Join(const Numbers& numbers) {
  std::string text;
  for (const auto& number : numbers) text += Text(number);
  return text;
}

TEST_F(DeclaredSizesTest, Application) {
  using Table = FlutterOstrelApplicationProcTable;
  const std::string no_permissions =
      "Current embedder version does not support HasPermission() method. Please, update flutter "
      "cache by removing `flutter/bin/cache` directory and running `flutter precache` command.";
  embedder_.answers = {{"CreateMainWindow", 0}};
  const std::vector<Operation<ApplicationWrapper>> operations = {
      {OLD(GetApplicationInfo, "application, 2) GetApplicationInfo(application, 2"),
       [](auto& a) { return a.GetApplicationInfo(ApplicationWrapper::InfoType{2}); }, "text", ""},
      {OLD(GetDartEntryPointArgs, "application"),
       [](auto& a) { return Text(a.GetDartEntryPointArgs().size()); }, "2", "0"},
      {OLD(GetOSVersion, ""), [](auto& a) { return Join(a.GetOSVersion()); }, "1234", "0000"},
      {OLD(GetEmbedderVersion, ""), [](auto& a) { return Join(a.GetEmbedderVersion()); }, "123",
       "000"},
      {OLD(EnqueueTask, "application, 7"), [](auto& a) { return a.EnqueueTask([] {}, 7), ""; }},
      {OLD(EnqueueTask, "application, 7"), [](auto& a) { return a.Invoke([] {}, 7), ""; }},
      {OLD(Exit, "application, 3"), [](auto& a) { return a.Exit(3), ""; }},
      {OLD(GetPath, "application, 1) GetPath(application, 1"),
       [](auto& a) { return a.GetLibraryPath("foo").string(); }, "text/libfoo.so", "libfoo.so"},
      {{TEST_SET(HasPermission)},
       no_permissions,
       "HasPermission(application, Camera)",
       [](auto& a) { return Text(a.HasPermission(cw::Permission::kCamera)); },
       "1",
       "0"},
      {NEW(CreateMainWindow, "application, a, b, 0"),
       [](auto& a) { return Text(a.CreateMainWindow("a", "b", nullptr, nullptr)); }, "1", "0"},
  };
  CheckEachDeclaration(&embedder_.application, operations);
}

// Rows of the view.
#define HANDLE(entry)                    \
  OLD(entry, "view"),                    \
      [](auto& v) {                      \
        void* out = &out;                \
        v.entry(&out), v.entry(nullptr); \
        return out ? "+" : "";           \
      },                                 \
      "+", ""
#define NUMBER(entry) OLD(entry, "view"), [](auto& v) { return Text(v.entry()); }
#define PLAIN(entry) OLD(entry, "view"), [](auto& v) { return v.entry(), ""; }
#define SUBSCRIBE(kind, name) \
  kind(name, "view"), [](auto& v) { return Text(v.name([] {})); }, "1", "0"
#define UNSUBSCRIBE(kind, name) kind(name, "view, 5"), [](auto& v) { return v.name(5), ""; }
#define LOCKED(entry)                                                                \
  {TEST_COVERED(LockResources), TEST_COVERED(UnlockResources), TEST_COVERED(entry)}, \
      kNamesTheEntry, "LockResources(view) " #entry "(view, 7) UnlockResources(view, 7)"

TEST_F(DeclaredSizesTest, View) {
  using Table = FlutterOstrelViewProcTable;
  const std::vector<Operation<ViewWrapper>> operations = {
      {HANDLE(GetEGLConfig)},
      {HANDLE(GetEGLDisplay)},
      {HANDLE(GetNativeDisplay)},
      {HANDLE(GetEGLGetProcAddress)},
      {HANDLE(GetEGLContextHandle)},
      {HANDLE(GetEGLOffscreenContextHandle)},
      {NUMBER(GetDevicePixelRatio), "2", "1"},
      {NUMBER(GetWindowVisibility), "3", "0"},
      {NEW(GetWindowVisibility, "view"), [](auto& v) { return Text(v.GetWindowMode()); }, "1", "0"},
      {SUBSCRIBE(NEW, WindowVisibilityChangedSubscribe)},
      {UNSUBSCRIBE(NEW, WindowVisibilityChangedUnsubscribe)},
      {PLAIN(MaximizeWindow)},
      {PLAIN(MinimizeWindow)},
      {NUMBER(GetWindowOrientation), "90", "0"},
      {SUBSCRIBE(OLD, WindowOrientationChangedSubscribe)},
      {UNSUBSCRIBE(OLD, WindowOrientationChangedUnsubscribe)},
      {NUMBER(GetWindowWidth), "1", "0"},
      {NUMBER(GetWindowHeight), "1", "0"},
      {NUMBER(GetDeviceOrientation), "270", "0"},
      {SUBSCRIBE(OLD, DeviceOrientationChangedSubscribe)},
      {UNSUBSCRIBE(OLD, DeviceOrientationChangedUnsubscribe)},
      {NUMBER(IsKeyboardVisible), "1", "0"},
      {SUBSCRIBE(OLD, KeyboardVisibilityChangedSubscribe)},
      {UNSUBSCRIBE(OLD, KeyboardVisibilityChangedUnsubscribe)},
      {OLD(SetStatusbarVisibility, "view, 2"),
       [](auto& v) { return Text(v.SetStatusbarVisibility(ViewWrapper::StatusbarVisibility{2})); },
       "1", "0"},
      {NUMBER(GetStatusbarVisibility), "1", "0"},
      {NUMBER(IsStatusbarVisible), "1", "0"},
      {PLAIN(Fullscreen)},
      {PLAIN(Activate)},
      {NUMBER(IsBackgroundVisible), "1", "0"},
      {OLD(SetBackgroundVisible, "view, 1"),
       [](auto& v) { return v.SetBackgroundVisible(true), ""; }},
      {NUMBER(GetWindowType), "1", "0"},
      {LOCKED(GetTheme), [](auto& v) { return v.GetTheme().texts[3]; }, "d", ""},
      {SUBSCRIBE(NEW, ThemeChangedSubscribe)},
      {UNSUBSCRIBE(NEW, ThemeChangedUnsubscribe)},
      {LOCKED(GetWindowPayload), [](auto& v) { return v.GetWindowPayload().IsNull() ? "" : "+"; },
       "+", ""},
      {{TEST_COVERED(CreatePopupWindow)},
       "Method \"CreatePopupWindow()\" is not provided by the loaded API.",
       "CreatePopupWindow(view, entry, text, 0)",
       [](auto& v) { return v.CreatePopupWindow("entry", "text", nullptr, nullptr), ""; }},
      {NEW(CloseWindow, "view, 1"), [](auto& v) { return v.CloseWindow(EncodableValue()), ""; }},
  };
  embedder_.answers = {{"GetDevicePixelRatio", 2},   {"GetWindowVisibility", 3},
                       {"GetWindowOrientation", 90}, {"GetDeviceOrientation", 270},
                       {"LockResources", 7},         {"GetTheme", 0},
                       {"GetWindowPayload", 0}};
  embedder_.payload = {1};
  CheckEachDeclaration(&embedder_.view, operations);
}

TEST_F(DeclaredSizesTest, Messenger) {
  using Table = FlutterOstrelMessengerProcTable;
  const auto not_provided = [](const std::string& name) {
    return "Method '" + name + "' is not provided by the loaded API.";
  };
  const std::vector<Operation<BinaryMessenger>> operations = {
      {OLD(Send, "engine, c, 0"), [](auto& m) { return m.Send("c", nullptr, 0, nullptr), ""; }},
      {OLD(Send, "engine, c, 0"),
       [](auto& m) { return m.Send("c", nullptr, 0, [](auto...) {}), ""; }},
      {OLD(SetMessageHandler, "engine, c, 1"),
       [](auto& m) { return m.SetMessageHandler("c", [](auto...) {}), ""; }},
      {{TEST_COVERED(ChannelUpdateSubscribe)},
       not_provided("OnChannelUpdateSubscribe"),
       "ChannelUpdateSubscribe(engine, c)",
       [](auto& m) { return Text(m.OnChannelUpdateSubscribe("c", [](bool) {})); },
       "1",
       "0"},
      {{TEST_COVERED(ChannelUpdateUnsubscribe)},
       not_provided("OnChannelUpdateUnsubscribe"),
       "ChannelUpdateUnsubscribe(engine, c, 5)",
       [](auto& m) { return m.OnChannelUpdateUnsubscribe("c", 5), ""; }},
  };
  CheckEachDeclaration(&embedder_.messenger, operations);
}

// The test of the first entry stands for marking, too: they came together.
TEST_F(DeclaredSizesTest, Textures) {
  using Table = FlutterOstrelTextureProcTable;
  static cw::Texture texture = cw::OpenGLTexture(nullptr);
  const std::vector<Operation<TextureRegistrar>> operations = {
      {OLD(RegisterTexture, "engine, 1"), [](auto& t) { return Text(t.RegisterTexture(&texture)); },
       "1", "-1"},
      {OLD(UnregisterTexture, "engine, 6"),
       [](auto& t) { return Text(t.UnregisterTexture(6, nullptr)); }, "1", "0"},
      {{TEST_SET(RegisterTexture)},
       "",
       "MarkTextureFrameAvailable(engine, 8)",
       [](auto& t) { return Text(t.MarkTextureFrameAvailable(8)); },
       "1",
       "0"},
  };
  CheckEachDeclaration(&embedder_.texture, operations, TEST_SET(MarkTextureFrameAvailable).field);
}

// The context is borrowed, in memory of its declared size or in more.
TEST_F(DeclaredSizesTest, Context) {
  using Table = FlutterOstrelPluginContext;
  ASSERT_EQ(9u, NamesOf<Table>().size());  // Whoever appends a field shows here what uses it.
  auto* const registrars = cw::PluginRegistrarManager::GetInstance();
  _FlutterOstrelEngine* const engine = embedder_.context.engine;
  test::ForEachDeclaration(embedder_.context, [&](Table declared, size_t) {
    for (Table* given : {page_end_.Place(declared), &declared}) {
      const auto has = [&](auto... needs) { return test::FindLack(declared, {needs...}).empty(); };
      auto* const registrar = registrars->GetRegistrarImpl(given);
      EXPECT_EQ(has(TEST_COVERED(engine)), registrar != nullptr);
      const auto calls = embedder_.TakeCalls();
      if (!registrar) continue;
      EXPECT_EQ(has(TEST_COVERED(EngineDestroyedSubscribe)),
                std::count(calls.begin(), calls.end(), "EngineDestroyedSubscribe") == 1);
      EXPECT_EQ(has(TEST_COVERED(application), TEST_COVERED(ApplicationProcTableLoad)),
                registrar->GetApplication() != nullptr);
      EXPECT_EQ(has(TEST_COVERED(view), TEST_COVERED(ViewProcTableLoad)),
                registrar->GetView() != nullptr);
      EXPECT_EQ(has(TEST_COVERED(TextureProcTableLoad)), registrar->GetTextures() != nullptr);
      EXPECT_EQ(has(TEST_COVERED(MessengerProcTableLoad)), registrar->GetMessenger() != nullptr);
      cw::PluginRegistrarManager::OnRegistrarDestroyed(engine);
    }
  });
}

// What the embedder fills in may be smaller than what it was asked for. The theme's numbers came in
// pairs: of a pair that is not covered whole neither counts.
TEST_F(DeclaredSizesTest, FilledStructures) {
  embedder_.answers = {{"GetTheme", 0}};
  const auto application = ApplicationWrapper::Create(embedder_.GetContext());
  const auto view = ViewWrapper::Create(embedder_.GetContext());
  for (uint32_t size = 0; size <= sizeof(FlutterOstrelTheme) + 16; ++size) {
    SCOPED_TRACE(size);
    const auto at = [size](uint32_t end, uint32_t value) { return size >= end ? value : 0; };
    embedder_.os_version.size = embedder_.embedder_version.size = size;
    EXPECT_EQ((ApplicationWrapper::OSVersion{at(8, 1), at(12, 2), at(16, 3), at(20, 4)}),
              application->GetOSVersion());
    EXPECT_EQ((ApplicationWrapper::EmbedderVersion{at(8, 1), at(12, 2), at(16, 3)}),
              application->GetEmbedderVersion());
    for (size_t null = 0; null <= 4; ++null) {
      embedder_.theme = {size, 0, {1, 2, 3, 4}, {"a", "b", "c", "d"}};
      if (null < 4) embedder_.theme.texts[null] = nullptr;
      const ViewWrapper::Theme theme = view->GetTheme();
      EXPECT_EQ(size < 8, theme.flag);
      EXPECT_EQ((std::array<uint32_t, 4>{at(16, 1), at(16, 2), at(24, 3), at(24, 4)}),
                theme.values);
      for (size_t i = 0; i < 4; ++i) {
        const bool is_given = size >= 24 + (i + 1) * sizeof(char*) && i != null;
        EXPECT_EQ(is_given ? std::string(1, "abcd"[i]) : "", theme.texts[i]);
      }
    }
  }
  embedder_.answers = {{"GetTheme", 1}, {"GetOSVersion", 0}};  // Failed, whatever was filled in.
  EXPECT_TRUE(view->GetTheme().flag);
  EXPECT_EQ(ApplicationWrapper::OSVersion{}, application->GetOSVersion());
}

TEST_F(DeclaredSizesTest, Payload) {
  static const uint8_t kTrue[] = {1};
  static ForgeBufferView filled;
  embedder_.view.GetWindowPayload = [](auto*, uint32_t, ForgeBufferView* view, uint32_t) {
    return *view = filled, 0u;
  };
  const auto view = ViewWrapper::Create(embedder_.GetContext());
  test::ForEachDeclaration(ForgeBufferView{0, kTrue, 1}, [&](ForgeBufferView declared, size_t) {
    const bool is_given = Covers(declared.struct_size, 2) && declared.data && declared.size == 1;
    filled = declared;
    EXPECT_EQ(!is_given, view->GetWindowPayload().IsNull());
    for (ForgeBufferView* given : {page_end_.Place(declared), &declared}) {
      EXPECT_EQ(!is_given, EncodableValue::Deserialize(given).IsNull());
      EXPECT_EQ(is_given ? 1u : 0u, forge::Buffer::FromCAPI(given).GetSize());
    }
  });
}

}  // namespace
