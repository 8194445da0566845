// The embedder as a plug-in in C sees it: through the context and the tables alone.
#include "desk/embedder/embedder.h"

#include <gtest/gtest.h>

#include <limits>
#include <thread>

#include <QCoreApplication>

#include "desk/common/value_json.h"
#include "tests/support/test_base.h"

namespace desk {
namespace {

// Global, because a plug-in's callbacks are plain functions.
std::unique_ptr<Embedder> embedder;
FlutterOstrelPluginContext context;
FlutterOstrelApplicationProcTable app;
FlutterOstrelViewProcTable view;
FlutterOstrelTextureProcTable texture;
FlutterOstrelMessengerProcTable dart;  // The messenger: it leads there.
auto*& self = context.application;
auto*& win = context.view;
auto*& eng = context.engine;
std::string heard;  // What the callbacks were told: "name;" is a call, "name~;" a release.

void Start(const std::string& description) {
  embedder = std::make_unique<Embedder>(ParseDescription(description));
  context = *embedder->GetContext();
  context.ApplicationProcTableLoad(&app, sizeof app, self);
  context.ViewProcTableLoad(&view, sizeof view, win);
  context.TextureProcTableLoad(&texture, sizeof texture, eng);
  context.MessengerProcTableLoad(&dart, sizeof dart, eng);
}

std::string LastAction() { return ToText(embedder->GetActions().back()); }
std::string Take() { return std::exchange(heard, ""); }

// What is heard once all that was posted has been done.
std::string Settle() {
  QCoreApplication::sendPostedEvents();
  QCoreApplication::sendPostedEvents();  // A dropped reply posts its answer.
  return Take();
}

// A callback that is told its name. It converts to a slot of each kind.
struct Probe {
  explicit Probe(const char* text) : name(const_cast<char*>(text)) {}

  static void Hear(void* name, const std::string& what = "") {
    heard += static_cast<char*>(name) + what + ';';
  }
  static void Call(void* name) { Hear(name); }
  static void Call(void* name, bool value) { Hear(name, value ? "+" : "-"); }
  static void Call(void* name, const uint8_t* data, size_t size, const char* text) {
    const auto value = cw::EncodableValue::Deserialize(data, size);
    Hear(name, ToText(value) + (text ? text : "(null)"));
  }
  static void Call(const uint8_t* data, size_t size, void* name) {
    Hear(name, data ? std::string(data, data + size) : std::to_string(size));
  }
  static void Release(void* name) { Hear(name, "~"); }

  template <typename Slot>
  operator const Slot*() const {
    static Slot slot;
    slot = {sizeof slot, Call, Release, name};
    return &slot;
  }

  void* const name;
};

class EmbedderTest : public test::TestBase {
 protected:
  EmbedderTest() { Start("{}"); }
  ~EmbedderTest() override { embedder.reset(); }

  int no_arguments_ = 0;
  QCoreApplication qt_{no_arguments_, nullptr};
};

TEST_F(EmbedderTest, ShowsWhatIsDescribed) {
  Start(
      R"({"directories": {"1": "/libs"}, "permissions": ["Camera"], "os_version": [1, 2, 3, 4]})");
  char text[5];
  EXPECT_EQ(app.GetApplicationInfo(self, 2, nullptr, 0), sizeof "org.example");
  EXPECT_EQ(app.GetPath(self, 1, text, 5), 6u);
  EXPECT_STREQ(text, "/lib") << "cut";
  EXPECT_EQ(app.GetPath(self, 2, text, 5), 0u);
  FlutterOstrelOSVersion version{};
  EXPECT_EQ(app.GetOSVersion(&version, sizeof version - 1), 0u);
  EXPECT_NE(app.GetOSVersion(&version, sizeof version), 0u);
  EXPECT_EQ(version.numbers[3], 4u);
  EXPECT_TRUE(app.HasPermission(self, "Camera!", 6));
  EXPECT_FALSE(app.HasPermission(self, "Camera!", 7));
  EXPECT_FALSE(app.HasPermission(self, nullptr, 7));
  EXPECT_TRUE(view.SetStatusbarVisibility(win, 2));
  EXPECT_FALSE(view.SetStatusbarVisibility(win, 3));
  EXPECT_EQ(view.GetStatusbarVisibility(win), 2u);
  void* handle = this;
  view.GetEGLDisplay(win, &handle);
  EXPECT_EQ(handle, nullptr);
}

// An older embedder than declared: tavo_embed_test.sh.
TEST_F(EmbedderTest, OlderPluginGetsNoMoreThanItKnows) {
  for (uint32_t size = 0; size <= sizeof dart; ++size) {
    FlutterOstrelMessengerProcTable table{};
    const bool is_loaded = context.MessengerProcTableLoad(&table, size, eng);
    EXPECT_EQ(is_loaded, size >= sizeof size);
    EXPECT_EQ(table.size, is_loaded ? size : 0);
    EXPECT_EQ(table.ChannelUpdateUnsubscribe != nullptr, size == sizeof table);
  }
}

TEST_F(EmbedderTest, TasksRunOnceFromAnyThreadAndTheFirstExitCounts) {
  std::thread([] { app.EnqueueTask(self, Probe("task"), 7); }).join();
  EXPECT_EQ(Take(), "");
  EXPECT_EQ(Settle(), "task;task~;");
  EXPECT_EQ(LastAction(), R"({"action":"EnqueueTask","value":7})");
  const auto exit = [](void*) { app.Exit(self, 3); };
  const FlutterOstrelSlot last{sizeof last, exit, nullptr, nullptr};
  app.EnqueueTask(self, &last, 0);
  EXPECT_EQ(embedder->Run(), 3);
  app.Exit(self, 4);
  EXPECT_EQ(embedder->Run(), 3);
}

// Dart passes what it hears on "c" to the plug-in's handler, and gives each answer back twice.
TEST_F(EmbedderTest, MessagesAreAnsweredLaterAndOnce) {
  static FlutterOstrelSendResponse respond;
  static std::vector<_FlutterOstrelResponse*> responses;
  Start(R"({"channels": {"canned": {"value": true}}})");
  const auto handler = [](auto*, auto*, auto*, size_t, auto send, auto* response, void*) {
    respond = send;
    responses.push_back(response);
  };
  dart.SetMessageHandler(eng, "c", handler, nullptr);
  embedder->Listen("c", [](auto* message, size_t message_size, const auto& reply) {
    embedder->Deliver("c", message, message_size, [reply](auto* data, size_t size) {
      heard += "dart;";
      reply(data, size);
      reply(data, size);
    });
  });
  const uint8_t bytes[] = {7, 1, 'x'};
  const auto send = [&](const char* channel) {
    return dart.Send(eng, channel, bytes, 3, Probe::Call, Probe(channel).name);
  };
  for (const char* channel : {"none", "canned", "c", "c", "c"}) EXPECT_TRUE(send(channel));
  EXPECT_FALSE(send(nullptr));
  EXPECT_EQ(Take(), "") << "not within Send";
  EXPECT_EQ(Settle(), "canned\1;none0;");
  for (int i = 0; i < 2; ++i) respond(eng, responses[1], bytes, 3);
  respond(eng, responses[0], nullptr, 9);
  respond(eng, nullptr, bytes, 3);
  EXPECT_EQ(Settle(), "dart;c\7\1x;dart;c0;");
  dart.SetMessageHandler(eng, "c", nullptr, nullptr);
  EXPECT_TRUE(dart.Send(eng, "c", nullptr, 5, Probe::Call, Probe("dropped").name));
  EXPECT_EQ(Settle(), "dropped0;");
  embedder->DestroyEngine();
  EXPECT_EQ(LastAction(), R"({"action":"Unanswered","channel":"c"})");
  respond(eng, responses[2], bytes, 3);
  EXPECT_EQ(Settle(), "");
}

TEST_F(EmbedderTest, SubscribersAreToldOfWhatChanged) {
  const auto update = dart.ChannelUpdateSubscribe(eng, "c", Probe("c"));
  EXPECT_NE(dart.ChannelUpdateSubscribe(eng, "d", Probe("d")), 0u);
  EXPECT_EQ(dart.ChannelUpdateSubscribe(eng, nullptr, Probe("null")), 0u);
  EXPECT_EQ(dart.ChannelUpdateSubscribe(eng, "c", nullptr), 0u);
  const Embedder::Listener listener = [](auto*, size_t, auto&) {};
  for (const auto& it : {listener, listener, {}, {}}) embedder->Listen("c", it);
  dart.ChannelUpdateUnsubscribe(eng, "d", update);
  EXPECT_EQ(Take(), "null~;c+;c-;");
  dart.ChannelUpdateUnsubscribe(eng, "c", update);

  const auto id = view.WindowVisibilityChangedSubscribe(win, Probe("shown"));
  view.KeyboardVisibilityChangedSubscribe(win, Probe("keyboard"));
  view.ThemeChangedSubscribe(win, Probe("theme"));
  view.WindowOrientationChangedSubscribe(win, Probe("window"));
  view.DeviceOrientationChangedSubscribe(win, Probe("device"));
  for (auto* show : {view.Fullscreen, view.Fullscreen, view.MinimizeWindow, view.Activate}) {
    show(win);
    heard += '|';
  }
  EXPECT_EQ(Take(), "c~;shown;||shown;|shown;|");
  for (const char* change : {R"({"keyboard": true, "width": 5})", R"({"orientation": 90})",
                             R"({"theme": {"flag": true}})", R"({"device_orientation": 90})"}) {
    embedder->ChangeView([change](View& state) { ChangeView(change, &state); });
  }
  view.ThemeChangedUnsubscribe(win, id);
  EXPECT_EQ(Take(), "keyboard;window;theme;device;");
  view.MaximizeWindow(win);
  view.WindowVisibilityChangedUnsubscribe(win, id);
  view.Fullscreen(win);
  EXPECT_EQ(Take(), "shown;shown~;");
  embedder->DestroyEngine();
  EXPECT_EQ(Take(), "d~;window~;device~;keyboard~;theme~;");
}

TEST_F(EmbedderTest, ChunkOwnsThemeAndPayload) {
  Start(R"({"payload": [true,2147483648,-1.5,5.0,{"b":"\u0001ä"}],
            "view": {"theme": {"values": [1, 2, 3, 4], "texts": ["", "b", "", ""]}}})");
  const uint32_t chunk = view.LockResources(win);
  FlutterOstrelTheme theme{};
  ForgeBufferView payload{};
  constexpr uint32_t kSize = sizeof theme;
  EXPECT_NE(view.GetTheme(win, chunk + 1, &theme, kSize), 0u);
  EXPECT_NE(view.GetTheme(win, chunk, nullptr, kSize), 0u);
  EXPECT_EQ(view.GetTheme(win, chunk, &theme, kSize - 1), 0u);
  EXPECT_EQ(theme.values[3], 4u);
  EXPECT_EQ(theme.texts[1], nullptr) << "not asked for";
  EXPECT_EQ(view.GetTheme(win, chunk, &theme, kSize), 0u);
  EXPECT_STREQ(theme.texts[1], "b");
  EXPECT_EQ(view.GetWindowPayload(win, chunk, &payload, sizeof payload), 0u);
  const auto value = cw::EncodableValue::Deserialize(&payload);
  EXPECT_EQ(ToText(value), R"([true,2147483648,-1.5,5.0,{"b":"\u0001ä"}])");
  for (int i = 0; i < 2; ++i) view.UnlockResources(win, chunk);
  EXPECT_NE(view.GetWindowPayload(win, chunk, &payload, sizeof payload), 0u);
}

TEST_F(EmbedderTest, WindowsAnswerOnceLater) {
  Start(R"({"main_window_result": {"value": 5, "text": "t"}})");
  const uint8_t yes[] = {1};
  const uint8_t huge[] = {12, 255, 255, 255, 255, 255};
  const FlutterOstrelWindowParameters given{sizeof given, yes, 1, "one", nullptr};
  EXPECT_NE(app.CreateMainWindow(self, nullptr, Probe("null")), 0u);
  EXPECT_EQ(app.CreateMainWindow(self, &given, Probe("main")), 0u);
  EXPECT_EQ(
      LastAction(),
      R"({"action":"CreateMainWindow","first_text":"one","payload":true,"second_text":null})");
  view.CreatePopupWindow(win, "entry", nullptr, nullptr, 5, Probe("popup"));
  EXPECT_EQ(LastAction(),
            R"({"action":"CreatePopupWindow","entry_point":"entry","payload":null,"text":null})");
  view.CloseWindow(win, huge, sizeof huge);
  EXPECT_EQ(LastAction(),
            R"({"action":"CloseWindow","result_fault":"it declares more than it holds"})");
  EXPECT_EQ(Take(), "null~;");
  EXPECT_EQ(Settle(), "main5t;main~;popupnull(null);popup~;");
}

TEST_F(EmbedderTest, FramesAreFetchedUntilTheTextureIsGone) {
  const uint8_t pixels[24] = {};
  FlutterOstrelPixelBuffer frame{sizeof frame, pixels, 2, 3, Probe::Release, Probe("frame").name};
  const auto fetch = [](size_t width, size_t height, void* data) -> const auto* {
    heard += "fetch;";
    return width < height ? static_cast<FlutterOstrelPixelBuffer*>(data) : nullptr;
  };
  FlutterOstrelTextureDescriptor descriptor{};
  descriptor.kind = FLUTTER_OSTREL_PIXEL_BUFFER;
  EXPECT_EQ(texture.RegisterTexture(eng, &descriptor), -1);
  EXPECT_EQ(texture.RegisterTexture(eng, nullptr), -1);
  descriptor.source.pixel_buffer = {fetch, &frame};
  EXPECT_EQ(texture.RegisterTexture(eng, &descriptor), 1);
  const auto mark = [](int id) { return texture.MarkTextureFrameAvailable(eng, id); };
  EXPECT_FALSE(mark(2));
  EXPECT_TRUE(mark(1));
  EXPECT_EQ(Take(), "");
  EXPECT_EQ(Settle(), "fetch;frame~;");
  EXPECT_EQ(LastAction().find(R"("Frame","bytes":24,"height":3,"sha256":"9d908ecf)"), 10u);
  frame.width = std::numeric_limits<size_t>::max() / 4;
  mark(1);
  EXPECT_EQ(Settle(), "fetch;frame~;");
  EXPECT_EQ(LastAction(), R"({"action":"NoFrame","texture":1})");
  embedder->ChangeView([](View& state) { state.width = state.height; });
  mark(1);
  EXPECT_EQ(Settle(), "fetch;");
  mark(1);
  void* const gone = Probe("gone").name;
  EXPECT_TRUE(texture.UnregisterTexture(eng, 1, Probe::Call, gone));
  EXPECT_FALSE(texture.UnregisterTexture(eng, 1, Probe::Call, gone));
  EXPECT_EQ(Take(), "");
  EXPECT_EQ(Settle(), "gone;");
}

TEST_F(EmbedderTest, EngineMayEndWithinTheCallOfASubscriber) {
  context.EngineDestroyedSubscribe(eng, nullptr);
  context.EngineDestroyedSubscribe(
      eng, [](_FlutterOstrelEngine*) { heard += view.GetWindowWidth(win) ? "usable;" : "stale;"; });
  const auto destroy = [](void*) { embedder->DestroyEngine(); };
  const FlutterOstrelSlot end{sizeof end, destroy, nullptr, nullptr};
  view.WindowVisibilityChangedSubscribe(win, &end);
  view.WindowVisibilityChangedSubscribe(win, Probe("later"));
  dart.ChannelUpdateSubscribe(eng, "c", Probe("update"));
  app.EnqueueTask(self, Probe("task"), 0);
  const FlutterOstrelWindowParameters parameters{};
  app.CreateMainWindow(self, &parameters, Probe("main"));
  view.LockResources(win);
  view.Fullscreen(win);
  destroy(nullptr);
  EXPECT_EQ(Settle(), "usable;task~;main~;update~;later~;");
}

// Null, stale, and of the wrong kind: neutral results, and slots are released.
TEST_F(EmbedderTest, WrongHandlesAreHarmless) {
  void* const stale = self;
  Start("{}");
  void* const rows[][2] = {{nullptr, nullptr}, {stale, stale}, {eng, win}};
  for (const auto& [handle, engine] : rows) {
    self = static_cast<_FlutterOstrelApplication*>(handle);
    win = static_cast<_FlutterOstrelView*>(handle);
    eng = static_cast<_FlutterOstrelEngine*>(engine);
    int count = 7;
    app.GetDartEntryPointArgs(self, &count, nullptr);
    EXPECT_EQ(count, 0);
    app.EnqueueTask(self, Probe("task"), 0);
    EXPECT_NE(app.CreateMainWindow(self, nullptr, Probe("main")), 0u);
    view.CreatePopupWindow(win, nullptr, nullptr, nullptr, 0, Probe("popup"));
    EXPECT_EQ(view.ThemeChangedSubscribe(win, Probe("theme")), 0u);
    EXPECT_EQ(dart.ChannelUpdateSubscribe(eng, "c", Probe("update")), 0u);
    EXPECT_FALSE(dart.Send(eng, "c", nullptr, 0, Probe::Call, nullptr));
    EXPECT_EQ(Settle(), "task~;main~;popup~;theme~;update~;");
  }
}

TEST_F(EmbedderTest, JsonHoldsAnyValueToALimitedDepth) {
  const cw::EncodableMap map{{5, std::vector<uint8_t>{1, 2}},
                             {cw::EncodableList{true}, std::numeric_limits<double>::infinity()},
                             {"a\xff", std::vector<float>{0.5F}}};
  EXPECT_EQ(ToText(cw::EncodableValue(map)),
            "{\"5\":[1,2],\"a\xEF\xBF\xBD\":[0.5],\"[true]\":null}");
  const auto parse = [](size_t depth) {
    Start("{\"payload\":" + std::string(depth, '[') + std::string(depth, ']') + '}');
  };
  parse(kDeepestJson);
  EXPECT_THROW(parse(kDeepestJson + 1), std::runtime_error);
  EXPECT_THROW(parse(100000), std::runtime_error);
}

}  // namespace
}  // namespace desk
