// The embedder as a plug-in in C sees it: through the context and the tables alone.
#include "desk/embedder/embedder.h"

#include <gtest/gtest.h>

#include <sstream>
#include <thread>

#include <QCoreApplication>

#include "desk/common/value_json.h"
#include "desk/embedder/steps.h"
#include "tests/support/deadline.h"
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

TEST_F(EmbedderTest, TasksAndResultsComeOnceLaterAndTheFirstExitCounts) {
  Start(R"({"main_window_result": {"value": 5, "text": "t"}})");
  testing::internal::CaptureStderr();
  std::thread([] {
    app.EnqueueTask(self, Probe("task"), 7);
    app.Exit(self, 9);
    view.GetWindowWidth(win);
  }).join();
  const std::string ignored =
      ": the call came on another thread than the embedder's and is ignored\n";
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "embedder: Exit" + ignored + "embedder: GetWindowWidth" + ignored);
  const FlutterOstrelWindowParameters parameters{};
  app.CreateMainWindow(self, &parameters, Probe("main"));
  view.CreatePopupWindow(win, "entry", nullptr, nullptr, 5, Probe("popup"));
  EXPECT_EQ(Take(), "");
  EXPECT_EQ(Settle(), "task;task~;main5t;main~;popupnull(null);popup~;");
  EXPECT_EQ(LastAction(), R"({"action":"EnqueueTask","value":7})");
  for (int code : {3, 4}) {
    app.Exit(self, code);
    EXPECT_EQ(embedder->Run(), 3);
  }
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
      for (int i = 0; i < 2; ++i) reply(data, size);
    });
  });
  const uint8_t bytes[] = {7, 1, 'x'};
  for (const char* channel : {"none", "canned", "c", "c"}) {
    EXPECT_TRUE(dart.Send(eng, channel, bytes, 3, Probe::Call, Probe(channel).name));
  }
  EXPECT_EQ(Take(), "") << "not within Send";
  EXPECT_EQ(Settle(), "canned\1;none0;");
  for (int i = 0; i < 2; ++i) respond(eng, responses[0], bytes, 3);
  EXPECT_EQ(Settle(), "c\7\1x;");
  dart.SetMessageHandler(eng, "c", nullptr, nullptr);
  EXPECT_TRUE(dart.Send(eng, "c", nullptr, 5, Probe::Call, Probe("dropped").name));
  EXPECT_EQ(Settle(), "dropped0;");
  embedder->DestroyEngine();
  EXPECT_EQ(LastAction(), R"({"action":"Unanswered","channel":"c"})");
  respond(eng, responses[1], bytes, 3);
  EXPECT_EQ(Settle(), "");
}

TEST_F(EmbedderTest, SubscribersAreToldOfWhatChanged) {
  const auto update = dart.ChannelUpdateSubscribe(eng, "c", Probe("c"));
  const Embedder::Listener listener = [](auto*, size_t, auto&) {};
  for (const auto& it : {listener, listener, {}, {}}) embedder->Listen("c", it);
  EXPECT_EQ(Take(), "c+;c-;");
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
  view.WindowVisibilityChangedUnsubscribe(win, id);
  view.MaximizeWindow(win);
  EXPECT_EQ(Take(), "keyboard;window;theme;device;shown~;");
  embedder->DestroyEngine();
  EXPECT_EQ(Take(), "window~;device~;keyboard~;theme~;");
}

TEST_F(EmbedderTest, ChunkOwnsThemeAndPayload) {
  Start(R"({"payload": [true,2147483648,-1.5,{"b":"\u0001ä"}],
            "view": {"theme": {"texts": ["", "b", "", ""]}}})");
  const uint32_t chunk = view.LockResources(win);
  FlutterOstrelTheme theme{};
  ForgeBufferView payload{};
  EXPECT_EQ(view.GetTheme(win, chunk, &theme, sizeof theme - 1), 0u);
  EXPECT_EQ(theme.texts[1], nullptr) << "not asked for";
  EXPECT_EQ(view.GetTheme(win, chunk, &theme, sizeof theme), 0u);
  EXPECT_STREQ(theme.texts[1], "b");
  EXPECT_EQ(view.GetWindowPayload(win, chunk, &payload, sizeof payload), 0u);
  const auto value = cw::EncodableValue::Deserialize(&payload);
  EXPECT_EQ(ToText(value), R"([true,2147483648,-1.5,{"b":"\u0001ä"}])");
  view.UnlockResources(win, chunk);
  EXPECT_NE(view.GetWindowPayload(win, chunk, &payload, sizeof payload), 0u);
}

TEST_F(EmbedderTest, FramesAreFetchedUntilTheTextureIsGone) {
  const uint8_t pixels[24] = {};
  FlutterOstrelPixelBuffer frame{sizeof frame, pixels, 2, 3, Probe::Release, Probe("frame").name};
  const auto fetch = [](size_t, size_t, void* data) -> const auto* {
    heard += "fetch;";
    return static_cast<FlutterOstrelPixelBuffer*>(data);
  };
  FlutterOstrelTextureDescriptor descriptor{};
  descriptor.kind = FLUTTER_OSTREL_PIXEL_BUFFER;
  descriptor.source.pixel_buffer = {fetch, &frame};
  EXPECT_EQ(texture.RegisterTexture(eng, &descriptor), 1);
  for (const char* action : {R"("Frame","bytes":24,"height":3,"sha256":"9d90)", R"("NoFrame")"}) {
    EXPECT_TRUE(texture.MarkTextureFrameAvailable(eng, 1));
    EXPECT_EQ(Take(), "");
    EXPECT_EQ(Settle(), "fetch;frame~;");
    EXPECT_EQ(LastAction().find(action), 10u) << LastAction();
    frame.width = SIZE_MAX / 4;  // The next frame has too many bytes.
  }
  texture.MarkTextureFrameAvailable(eng, 1);
  void* const gone = Probe("gone").name;
  EXPECT_TRUE(texture.UnregisterTexture(eng, 1, Probe::Call, gone));
  EXPECT_FALSE(texture.UnregisterTexture(eng, 1, Probe::Call, gone));
  EXPECT_EQ(Settle(), "gone;");
}

TEST_F(EmbedderTest, RendererMayHaveAThreadOfItsOwn) {
  Start(R"({"render_thread": true})");
  static std::thread::id renderer;
  FlutterOstrelTextureDescriptor descriptor{};
  descriptor.source.pixel_buffer.callback = [](size_t, size_t, void*) {
    renderer = std::this_thread::get_id();
    return static_cast<const FlutterOstrelPixelBuffer*>(nullptr);
  };
  texture.RegisterTexture(eng, &descriptor);
  texture.MarkTextureFrameAvailable(eng, 1);
  EXPECT_TRUE(test::WaitUntil([] { return LastAction().find("NoFrame") != std::string::npos; }));
  EXPECT_NE(renderer, std::this_thread::get_id());
  embedder.reset();
}

TEST_F(EmbedderTest, EngineMayEndWithinTheCallOfASubscriber) {
  context.EngineDestroyedSubscribe(
      eng, [](_FlutterOstrelEngine*) { heard += view.GetWindowWidth(win) ? "usable;" : "stale;"; });
  const auto destroy = [](void*) { embedder->DestroyEngine(); };
  const FlutterOstrelSlot end{sizeof end, destroy, nullptr, nullptr};
  view.WindowVisibilityChangedSubscribe(win, &end);
  view.WindowVisibilityChangedSubscribe(win, Probe("later"));
  dart.ChannelUpdateSubscribe(eng, "c", Probe("update"));
  app.EnqueueTask(self, Probe("task"), 0);
  view.Fullscreen(win);
  destroy(nullptr);
  EXPECT_EQ(Settle(), "usable;task~;update~;later~;");
}

// What a step expects need not tell which types of numbers, lists and keys the plug-in sends.
TEST_F(EmbedderTest, ExpectedValueMatchesWhateverItsTypes) {
  const cw::EncodableMap sent{
      {"a", std::vector<int64_t>{1, 2}},
      {"b", std::vector<uint8_t>{3}},
      {"c", cw::EncodableList{4.0, std::vector<float>{0.5F}}},
      {"d", cw::EncodableMap{{5, std::numeric_limits<double>::quiet_NaN()}}},
      {"e", cw::EncodableMap{{1.0, 1}, {int64_t{INT64_MAX}, 2}}}};
  for (const char* expected :
       {R"({"a": [1, 2.0], "b": [3], "c": [4, [0.5]], "d": {"5": null},
            "e": {"1.0": 1, "9223372036854775807": 2}})",
        R"({"a": {"$int32s": [1, 2]}, "b": {"$bytes": "Aw=="}, "c": [4, [0.5]],
            "d": {"$map": [[5, {"$float64": "NaN"}]]},
            "e": {"$map": [[1.0, 1], [{"$int64": "9223372036854775807"}, 2]]}})"}) {
    const auto steps =
        R"({"steps": [{"expect": {"channel": "c", "value": )" + std::string(expected) + R"(}}]})";
    std::ostringstream output;
    StepRunner runner(*embedder, ParseDescription(steps).steps, output);
    for (const cw::EncodableValue& message : cw::EncodableList{6, sent}) {
      runner.OnAction(cw::EncodableMap{
          {"action", "Send"}, {"channel", "c"}, {"size", 1}, {"message", message}});
    }
    runner.Start();
    Settle();
    EXPECT_EQ(output.str().substr(0, 30), "expect c -> {\"message\":{\"a\":{\"");
  }
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
    app.EnqueueTask(self, Probe("task"), 0);
    EXPECT_NE(app.CreateMainWindow(self, nullptr, Probe("main")), 0u);
    EXPECT_EQ(view.ThemeChangedSubscribe(win, Probe("theme")), 0u);
    EXPECT_EQ(dart.ChannelUpdateSubscribe(eng, "c", Probe("update")), 0u);
    EXPECT_FALSE(dart.Send(eng, "c", nullptr, 0, Probe::Call, nullptr));
    EXPECT_EQ(Settle(), "task~;main~;theme~;update~;");
  }
}

}  // namespace
}  // namespace desk
