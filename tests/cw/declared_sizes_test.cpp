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

// Older entries need only be set, and are done without in silence, but for one; newer ones must be
// covered, and are logged where they are not.
enum Age { kOld, kOldLogged, kNew };

// The entries that a trace names.
std::vector<test::Need> FindEntries(const std::string& trace, Age age) {
  std::vector<test::Need> found;
#define BEGIN(name)
#define FIELD ENTRY
#define ENTRY(index, field, ...) \
  if (trace.find(#field "(") != std::string::npos) found.push_back({index, #field, age == kNew});
#define END(count)
#include "platform/flutter_ostrel/embedder_entries.inc"
  return found;
}

// An operation of an object over a table: what it calls, which it needs, too; and its result, with
// and without that.
template <typename Wrapper>
struct Operation {
  Age age;
  std::string trace;
  std::function<std::string(Wrapper&)> call;
  std::string result = "";
  std::string neutral = "";
};
#define DO(...) [](auto& w) { return __VA_ARGS__, ""; }
#define GET(...) [](auto& w) { return testing::PrintToString(__VA_ARGS__); }

class DeclaredSizesTest : public test::EmbedderTest {
 protected:
  // Has the table declared in every way and tries each operation on it.
  template <typename Wrapper, typename Table>
  void Check(Table* table, const std::vector<Operation<Wrapper>>& rows, size_t never_null = 0) {
    std::string traces;
    for (const auto& row : rows) traces += row.trace;
    // Whoever appends an entry shows here what uses it.
    EXPECT_EQ(test::kFields<Table>, 1 + FindEntries(traces, kOld).size());
    test::ForEachDeclaration(Table(*table), [&](const Table& declared, size_t null) {
      if (null == never_null && null > 0) return;
      *table = declared;
      const auto wrapper = Wrapper::Create(GetContext());
      TakeTrace();
      for (const auto& row : rows) {
        const auto lack = test::FindLack(declared, FindEntries(row.trace, row.age));
        EXPECT_EQ(lack.empty() ? row.result : row.neutral, row.call(*wrapper)) << row.trace;
        EXPECT_EQ(lack.empty() ? row.trace : "", TakeTrace());
        const bool is_logged = !lack.empty() && row.age != kOld;
        EXPECT_EQ(is_logged ? 1 : 0, log_.TakeLines().size()) << row.trace;
      }
    });
  }
};

TEST_F(DeclaredSizesTest, Application) {
  const std::vector<Operation<ApplicationWrapper>> rows = {
      {kOld, "GetApplicationInfo(2, 0) GetApplicationInfo(2, 5)",
       GET(w.GetApplicationInfo(ApplicationWrapper::InfoType{2})), "\"text\"", "\"\""},
      {kOld, "GetDartEntryPointArgs()", GET(w.GetDartEntryPointArgs()), "{ \"one\", \"two\" }",
       "{}"},
      {kOld, "GetOSVersion()", GET(w.GetOSVersion()), "{ 1, 2, 3, 4 }", "{ 0, 0, 0, 0 }"},
      {kOld, "GetEmbedderVersion()", GET(w.GetEmbedderVersion()), "{ 1, 2, 3 }", "{ 0, 0, 0 }"},
      {kOld, "EnqueueTask(7)", DO(w.EnqueueTask([] {}, 7))},
      {kOld, "EnqueueTask(7)", DO(w.Invoke([] {}, 7))},
      {kOld, "Exit(3)", DO(w.Exit(3))},
      {kOld, "GetPath(1, 0) GetPath(1, 5)", GET(w.GetLibraryPath("foo").string()),
       "\"text/libfoo.so\"", "\"libfoo.so\""},
      {kOldLogged, "HasPermission(Camera, 6)", GET(w.HasPermission(cw::Permission::kCamera)),
       "true", "false"},
      {kNew, "CreateMainWindow(a, b, 0, null)", GET(w.CreateMainWindow("a", "b", nullptr, nullptr)),
       "true", "false"},
  };
  answers = {{"CreateMainWindow", 0}};
  Check(&application, rows);
}

bool GivesHandle(const ViewWrapper& view, void (ViewWrapper::*entry)(void**) const) {
  void* handle = &handle;
  (view.*entry)(&handle);
  (view.*entry)(nullptr);  // Ignored.
  return handle != nullptr;
}
#define HANDLE(entry) kOld, #entry "()", GET(GivesHandle(w, &ViewWrapper::entry)), "true", "false"
#define NUMBER(entry) kOld, #entry "()", GET(static_cast<int>(w.entry()))
#define PLAIN(entry) kOld, #entry "()", DO(w.entry())
#define SUBSCRIPTION(age, entry)                                             \
  {age, #entry "Subscribe()", GET(w.entry##Subscribe(nullptr)), "1", "0"}, { \
    age, #entry "Unsubscribe(5)", DO(w.entry##Unsubscribe(5))                \
  }

TEST_F(DeclaredSizesTest, View) {
  const std::vector<Operation<ViewWrapper>> rows = {
      {HANDLE(GetEGLConfig)},
      {HANDLE(GetEGLDisplay)},
      {HANDLE(GetNativeDisplay)},
      {HANDLE(GetEGLGetProcAddress)},
      {HANDLE(GetEGLContextHandle)},
      {HANDLE(GetEGLOffscreenContextHandle)},
      {NUMBER(GetDevicePixelRatio), "2", "1"},
      {NUMBER(GetWindowVisibility), "3", "0"},
      {kNew, "GetWindowVisibility()", GET(w.GetWindowMode()), "true", "false"},
      SUBSCRIPTION(kNew, WindowVisibilityChanged),
      {PLAIN(MaximizeWindow)},
      {PLAIN(MinimizeWindow)},
      {NUMBER(GetWindowOrientation), "90", "0"},
      SUBSCRIPTION(kOld, WindowOrientationChanged),
      {NUMBER(GetWindowWidth), "1", "0"},
      {NUMBER(GetWindowHeight), "1", "0"},
      {NUMBER(GetDeviceOrientation), "270", "0"},
      SUBSCRIPTION(kOld, DeviceOrientationChanged),
      {NUMBER(IsKeyboardVisible), "1", "0"},
      SUBSCRIPTION(kOld, KeyboardVisibilityChanged),
      {kOld, "SetStatusbarVisibility(2)",
       GET(w.SetStatusbarVisibility(ViewWrapper::StatusbarVisibility{2})), "true", "false"},
      {NUMBER(GetStatusbarVisibility), "1", "0"},
      {NUMBER(IsStatusbarVisible), "1", "0"},
      {PLAIN(Fullscreen)},
      {PLAIN(Activate)},
      {NUMBER(IsBackgroundVisible), "1", "0"},
      {kOld, "SetBackgroundVisible(1)", DO(w.SetBackgroundVisible(true))},
      {NUMBER(GetWindowType), "1", "0"},
      {kNew, "LockResources() GetTheme(1) UnlockResources(1)", GET(w.GetTheme().flag), "false",
       "true"},
      SUBSCRIPTION(kNew, ThemeChanged),
      {kNew, "LockResources() GetWindowPayload(1) UnlockResources(1)",
       GET(w.GetWindowPayload().IsNull()), "false", "true"},
      {kNew, "CreatePopupWindow(a, b, 0, null)",
       DO(w.CreatePopupWindow("a", "b", nullptr, nullptr))},
      {kNew, "CloseWindow(1)", DO(w.CloseWindow(true))},
  };
  answers["GetDevicePixelRatio"] = 2;
  answers["GetWindowVisibility"] = 3;
  answers["GetWindowOrientation"] = 90;
  answers["GetDeviceOrientation"] = 270;
  answers["GetTheme"] = answers["GetWindowPayload"] = 0;
  payload = {1};
  Check(&view, rows);
}

TEST_F(DeclaredSizesTest, Messenger) {
  const std::vector<Operation<BinaryMessenger>> rows = {
      {kOld, "Send(c, 0)", DO(w.Send("c", nullptr, 7, nullptr))},
      {kOld, "Send(c, 0)", DO(w.Send("c", nullptr, 7, [](auto...) {}))},
      {kOld, "SetMessageHandler(c, 1)", DO(w.SetMessageHandler("c", [](auto...) {}))},
      {kNew, "ChannelUpdateSubscribe(c)", GET(w.OnChannelUpdateSubscribe("c", nullptr)), "1", "0"},
      {kNew, "ChannelUpdateUnsubscribe(c, 5)", DO(w.OnChannelUpdateUnsubscribe("c", 5))},
  };
  Check(&messenger, rows);
}

// The test of the first entry stands for marking, too: they came together. So that is never null.
TEST_F(DeclaredSizesTest, Textures) {
  static cw::Texture gl = cw::OpenGLTexture(nullptr);
  using Results = std::pair<int64_t, bool>;
  const std::vector<Operation<TextureRegistrar>> rows = {
      {kOld, "RegisterTexture(1) MarkTextureFrameAvailable(8)",
       GET(Results{w.RegisterTexture(&gl), w.MarkTextureFrameAvailable(8)}), "(1, true)",
       "(-1, false)"},
      {kOld, "UnregisterTexture(6)", GET(w.UnregisterTexture(6, nullptr)), "true", "false"},
  };
  Check(&texture, rows, 3);
}

TEST_F(DeclaredSizesTest, Context) {
  using Table = FlutterOstrelPluginContext;
  ASSERT_EQ(9u, test::kFields<Table>);  // Whoever appends a field shows here what uses it.
  auto* const registrars = cw::PluginRegistrarManager::GetInstance();
  _FlutterOstrelEngine* const engine = context.engine;
  test::ForEachDeclaration(Table(context), [&](const Table& declared, size_t) {
    context = declared;
    const auto has = [&](const char* fields) {
      return test::FindLack(declared, FindEntries(fields, kNew)).empty();
    };
    auto* const made = registrars->GetRegistrarImpl(GetContext(declared.size));
    EXPECT_EQ(has("engine("), made != nullptr);
    if (!made) return;
    const bool is_told = std::exchange(engine_destroyed, nullptr);
    EXPECT_EQ(has("EngineDestroyedSubscribe("), is_told);
    EXPECT_EQ(has("application( ApplicationProcTableLoad("), made->GetApplication() != nullptr);
    EXPECT_EQ(has("view( ViewProcTableLoad("), made->GetView() != nullptr);
    EXPECT_EQ(has("TextureProcTableLoad("), made->GetTextures() != nullptr);
    EXPECT_EQ(has("MessengerProcTableLoad("), made->GetMessenger() != nullptr);
    EXPECT_EQ(made->GetApplication() ? "text" : "", made->GetLibraryPath());
    cw::PluginRegistrarManager::OnRegistrarDestroyed(engine);
  });
}

// What the embedder fills in may be smaller than what it was asked for. The theme's numbers came in
// pairs: of a pair that is not covered whole neither counts.
TEST_F(DeclaredSizesTest, FilledStructures) {
  const auto app = ApplicationWrapper::Create(GetContext());
  const auto shown = ViewWrapper::Create(GetContext());
  answers = {{"GetTheme", 0}, {"GetWindowPayload", 0}};
  payload = {1};
  theme.texts[1] = nullptr;
  for (uint32_t size = 0; size <= sizeof(FlutterOstrelTheme) + 16; ++size) {
    SCOPED_TRACE(size);
    const auto at = [size](uint32_t end, uint32_t value) { return size >= end ? value : 0; };
    os_version.size = embedder_version.size = theme.size = payload_size = size;
    EXPECT_EQ((std::array{at(8, 1), at(12, 2), at(16, 3), at(20, 4)}), app->GetOSVersion());
    EXPECT_EQ((std::array{at(8, 1), at(12, 2), at(16, 3)}), app->GetEmbedderVersion());
    const ViewWrapper::Theme given = shown->GetTheme();
    EXPECT_EQ(size < 8, given.flag);
    EXPECT_EQ((std::array{at(16, 1), at(16, 2), at(24, 3), at(24, 4)}), given.values);
    for (size_t i = 0; i < 4; ++i) {
      const bool is_given = size >= 24 + (i + 1) * sizeof(char*) && i != 1;
      EXPECT_EQ(is_given ? std::string(1, "abcd"[i]) : "", given.texts[i]);
    }
    EXPECT_EQ(size < sizeof(ForgeBufferView), shown->GetWindowPayload().IsNull());
  }
  answers = {{"GetTheme", 1}, {"GetOSVersion", 0}};  // Failed, whatever was filled in.
  EXPECT_TRUE(shown->GetTheme().flag);
  EXPECT_EQ(ApplicationWrapper::OSVersion{}, app->GetOSVersion());
}

}  // namespace
