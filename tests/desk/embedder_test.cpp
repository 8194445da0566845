// The embedder as a plug-in in C sees it: through the context and the tables alone.
#include "desk/embedder/embedder.h"

#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <thread>

#include <QCoreApplication>

#include "desk/common/value_json.h"
#include "forge/proc_table.h"
#include "tests/support/deadline.h"
#include "tests/support/test_base.h"

namespace desk {
namespace {

using cw::EncodableMap;
using cw::EncodableValue;

// Counts what becomes of a slot.
struct Probe {
  int calls = 0;
  int releases = 0;
  std::string told;

  static void Call(void* data) { ++static_cast<Probe*>(data)->calls; }
  static void CallBool(void* data, bool value) {
    Call(data);
    static_cast<Probe*>(data)->told += value ? "+" : "-";
  }
  static void CallResult(void* data, const uint8_t* bytes, size_t size, const char* text) {
    Call(data);
    static_cast<Probe*>(data)->told =
        ToText(EncodableValue::Deserialize(bytes, size)) + (text ? text : "(null)");
  }
  static void Reply(const uint8_t* bytes, size_t size, void* data) {
    Call(data);
    static_cast<Probe*>(data)->told +=
        bytes ? std::string(reinterpret_cast<const char*>(bytes), size) : "(null)";
  }
  static void Release(void* data) {
    EXPECT_EQ(static_cast<Probe*>(data)->releases, 0) << "released twice";
    ++static_cast<Probe*>(data)->releases;
  }

  FlutterOstrelSlot slot{sizeof slot, Call, Release, this};
  FlutterOstrelBoolSlot bool_slot{sizeof bool_slot, CallBool, Release, this};
  FlutterOstrelResultSlot result_slot{sizeof result_slot, CallResult, Release, this};
};

class EmbedderTest : public test::TestBase {
 protected:
  void SetUp() override {
    application_ = std::make_unique<QCoreApplication>(count_, arguments_);
    TestBase::SetUp();
  }
  void TearDown() override {
    embedder_.reset();
    TestBase::TearDown();
    application_.reset();
  }

  void Start(const std::string& description = "{}") {
    embedder_ = std::make_unique<Embedder>(ParseDescription(description));
    context_ = *embedder_->GetContext();
    ASSERT_NE(
        context_.ApplicationProcTableLoad(&application_table_, sizeof application_table_, App()),
        0u);
    ASSERT_NE(context_.ViewProcTableLoad(&view_, sizeof view_, Win()), 0u);
    ASSERT_NE(context_.TextureProcTableLoad(&texture_, sizeof texture_, Eng()), 0u);
    ASSERT_NE(context_.MessengerProcTableLoad(&messenger_, sizeof messenger_, Eng()), 0u);
  }

  _FlutterOstrelApplication* App() const { return context_.application; }
  _FlutterOstrelEngine* Eng() const { return context_.engine; }
  _FlutterOstrelView* Win() const { return context_.view; }

  // The actions of that name, as JSON, without their name.
  std::vector<std::string> ActionsOf(const std::string& name) const {
    std::vector<std::string> texts;
    for (const auto& action : embedder_->GetActions()) {
      EncodableMap map = action.Get<EncodableMap>();
      const bool is_wanted = map["action"] == EncodableValue(name);
      map.erase("action");
      if (is_wanted) texts.push_back(ToText(EncodableValue(map)));
    }
    return texts;
  }
  using Texts = std::vector<std::string>;

  // Runs until all that is posted so far has been done.
  void Settle() {
    Probe last;
    application_table_.EnqueueTask(App(), &last.slot, 0);
    ASSERT_TRUE(test::WaitUntil([&] { return last.releases == 1; }));
  }

  std::unique_ptr<Embedder> embedder_;
  FlutterOstrelPluginContext context_{};
  FlutterOstrelApplicationProcTable application_table_{};
  FlutterOstrelViewProcTable view_{};
  FlutterOstrelTextureProcTable texture_{};
  FlutterOstrelMessengerProcTable messenger_{};

 private:
  int count_ = 1;
  char name_[5] = "test";
  char* arguments_[2] = {name_, nullptr};
  std::unique_ptr<QCoreApplication> application_;
};

TEST_F(EmbedderTest, ShowsWhatIsDescribed) {
  Start(R"({"information": {"2": "name"}, "directories": {"1": "/libs"}, "arguments": ["a", "b"],
            "permissions": ["Camera"], "os_version": [1, 2, 3, 4], "embedder_version": [3, 16, 2],
            "view": {"visibility": 3, "orientation": 90, "device_orientation": 270, "width": 10,
                     "height": 20, "keyboard": true, "statusbar": 1, "type": 2}})");
  char text[5];
  EXPECT_EQ(application_table_.GetApplicationInfo(App(), 2, nullptr, 0), 5u);
  EXPECT_EQ(application_table_.GetApplicationInfo(App(), 2, text, sizeof text), 5u);
  EXPECT_STREQ(text, "name");
  EXPECT_EQ(application_table_.GetPath(App(), 1, text, sizeof text), 6u);
  EXPECT_STREQ(text, "/lib") << "cut";
  EXPECT_EQ(application_table_.GetPath(App(), 2, text, sizeof text), 0u);

  int count = 0;
  const char* const* arguments = nullptr;
  application_table_.GetDartEntryPointArgs(App(), &count, &arguments);
  ASSERT_EQ(count, 2);
  EXPECT_STREQ(arguments[1], "b");
  EXPECT_EQ(arguments[2], nullptr);

  FlutterOstrelOSVersion version{};
  EXPECT_EQ(application_table_.GetOSVersion(&version, sizeof version - 1), 0u);
  EXPECT_NE(application_table_.GetOSVersion(&version, sizeof version), 0u);
  EXPECT_EQ(version.numbers[3], 4u);
  FlutterOstrelEmbedderVersion embedder_version{};
  EXPECT_NE(application_table_.GetEmbedderVersion(&embedder_version, sizeof embedder_version), 0u);
  EXPECT_EQ(embedder_version.numbers[2], 2u);
  EXPECT_TRUE(application_table_.HasPermission(App(), "Camera!", 6));
  EXPECT_FALSE(application_table_.HasPermission(App(), "Camera!", 7));
  EXPECT_FALSE(application_table_.HasPermission(App(), nullptr, 7));
  EXPECT_EQ(ActionsOf("HasPermission").front(), R"({"answer":true,"permission":"Camera"})");

  EXPECT_EQ(view_.GetWindowVisibility(Win()), 3u);
  EXPECT_EQ(view_.GetWindowOrientation(Win()), 90u);
  EXPECT_EQ(view_.GetDeviceOrientation(Win()), 270u);
  EXPECT_EQ(view_.GetWindowWidth(Win()), 10u);
  EXPECT_EQ(view_.GetWindowHeight(Win()), 20u);
  EXPECT_TRUE(view_.IsKeyboardVisible(Win()));
  EXPECT_EQ(view_.GetStatusbarVisibility(Win()), 1u);
  EXPECT_EQ(view_.GetWindowType(Win()), 2u);
}

// Each declared and asked size fills what both cover, and touches nothing else.
TEST_F(EmbedderTest, PlaysOlderEmbeddersToTheByte) {
  Start();
  constexpr uint32_t kWhole = sizeof messenger_;
  for (uint32_t declared = 0; declared <= kWhole; ++declared) {
    Description description;
    description.declared_sizes.messenger = declared;
    Embedder older(description);
    auto* const context = older.GetContext();
    for (uint32_t asked = 0; asked <= kWhole; ++asked) {
      FlutterOstrelMessengerProcTable table, expected;
      std::memset(static_cast<void*>(&table), 0xA5, sizeof table);
      std::memset(static_cast<void*>(&expected), 0xA5, sizeof expected);
      const uint32_t known = std::min(declared, asked);
      const bool can_load = known >= sizeof known;
      if (can_load) forge::FillCovered(&expected, known, messenger_);
      ASSERT_EQ(context->MessengerProcTableLoad(&table, asked, context->engine) != 0, can_load);
      ASSERT_EQ(std::memcmp(&table, &expected, sizeof table), 0) << declared << ' ' << asked;
    }
  }
}

TEST_F(EmbedderTest, ContextHasTheDeclaredSize) {
  for (const uint32_t declared : {0u, 4u, 8u, 40u, 4096u}) {
    Description description;
    description.declared_sizes.context = declared;
    Embedder embedder(description);
    EXPECT_EQ(embedder.GetContext()->size, declared);
  }
}

TEST_F(EmbedderTest, TasksRunOnceFromAnyThreadAndExitEndsTheLoop) {
  Start();
  Probe probe;
  std::thread([&] { application_table_.EnqueueTask(App(), &probe.slot, 7); }).join();
  EXPECT_EQ(probe.calls, 0);
  Settle();
  EXPECT_EQ(probe.calls, 1);
  EXPECT_EQ(probe.releases, 1);
  EXPECT_EQ(ActionsOf("EnqueueTask").front(), R"({"value":7})");

  struct Leaver {
    const FlutterOstrelApplicationProcTable& table;
    _FlutterOstrelApplication* application;
  } leaver{application_table_, App()};
  const auto exit = [](void* data) {
    const auto& it = *static_cast<Leaver*>(data);
    it.table.Exit(it.application, 3);
  };
  const FlutterOstrelSlot leave{sizeof leave, exit, nullptr, &leaver};
  application_table_.EnqueueTask(App(), &leave, 0);
  EXPECT_EQ(embedder_->Run(), 3);
  application_table_.Exit(App(), 4);
  EXPECT_EQ(embedder_->Run(), 3) << "the first one counts";
}

// ---- Messenger ----

FlutterOstrelSendResponse send_response;
std::vector<_FlutterOstrelResponse*> responses;

void Keep(_FlutterOstrelEngine*, const char*, const uint8_t*, size_t,
          FlutterOstrelSendResponse respond, _FlutterOstrelResponse* response, void*) {
  send_response = respond;
  responses.push_back(response);
}

TEST_F(EmbedderTest, MessageIsAnsweredAtMostOnce) {
  Start();
  responses.clear();
  std::string told;
  const auto reply = [&](const uint8_t* data, size_t size) {
    told += std::string(reinterpret_cast<const char*>(data), size) + ";";
  };
  const uint8_t bytes[] = {'h', 'i'};
  EXPECT_FALSE(embedder_->Deliver("c", bytes, 2, reply));
  messenger_.SetMessageHandler(Eng(), "c", Keep, nullptr);
  EXPECT_TRUE(embedder_->Deliver("c", bytes, 2, reply));
  EXPECT_TRUE(embedder_->Deliver("c", nullptr, 0, reply));
  EXPECT_TRUE(embedder_->Deliver("c", nullptr, 0, reply));
  EXPECT_EQ(told, "");
  send_response(Eng(), responses[1], bytes, 2);
  send_response(Eng(), responses[1], bytes, 2);
  send_response(Eng(), responses[0], nullptr, 9);
  send_response(Eng(), nullptr, bytes, 2);
  send_response(nullptr, responses[2], bytes, 2);
  EXPECT_EQ(told, "hi;;");
  messenger_.SetMessageHandler(Eng(), "c", nullptr, nullptr);
  EXPECT_FALSE(embedder_->Deliver("c", bytes, 2, reply));
  embedder_->DestroyEngine();
  EXPECT_EQ(ActionsOf("Unanswered"), Texts{R"({"channel":"c"})"});
  send_response(Eng(), responses[2], bytes, 2);
  EXPECT_EQ(told, "hi;;");
}

TEST_F(EmbedderTest, SentMessageIsAnsweredLaterAndOnce) {
  Start(R"({"channels": {"canned": {"value": null}}})");
  const uint8_t bytes[] = {'h', 'i'};
  Embedder::Reply kept;
  embedder_->Listen("echo", [](const uint8_t* data, size_t size, const Embedder::Reply& reply) {
    reply(data, size);
    reply(data, size);
  });
  embedder_->Listen("keep",
                    [&](const uint8_t*, size_t, const Embedder::Reply& reply) { kept = reply; });
  const auto send = [&](const char* channel, Probe* probe) {
    EXPECT_TRUE(messenger_.Send(Eng(), channel, bytes, 2, Probe::Reply, probe));
    EXPECT_EQ(probe->calls, 0) << "not within Send";
    Settle();
  };
  Probe echo, canned, nobody, late, dropped, after;
  send("echo", &echo);
  send("canned", &canned);
  send("nobody", &nobody);
  Settle();  // The answer of a reply that went is posted once more.
  EXPECT_EQ(echo.told, "hi");
  EXPECT_EQ(canned.told, std::string(1, '\0'));
  EXPECT_EQ(nobody.told, "(null)");
  send("keep", &late);
  EXPECT_EQ(late.told, "");
  kept(bytes, 1);
  EXPECT_EQ(late.told, "h");
  send("keep", &dropped);
  kept = nullptr;
  Settle();
  EXPECT_EQ(dropped.told, "(null)");
  send("keep", &after);
  EXPECT_TRUE(messenger_.Send(Eng(), "echo", nullptr, 5, nullptr, nullptr));
  EXPECT_FALSE(messenger_.Send(Eng(), nullptr, bytes, 2, Probe::Reply, &after));
  embedder_->DestroyEngine();
  kept(bytes, 2);
  EXPECT_EQ(after.calls, 0);
}

TEST_F(EmbedderTest, ChannelUpdatesAreTold) {
  Start();
  Probe probe, other, null;
  const auto id = messenger_.ChannelUpdateSubscribe(Eng(), "c", &probe.bool_slot);
  ASSERT_NE(id, 0u);
  ASSERT_NE(messenger_.ChannelUpdateSubscribe(Eng(), "d", &other.bool_slot), 0u);
  EXPECT_EQ(messenger_.ChannelUpdateSubscribe(Eng(), nullptr, &null.bool_slot), 0u);
  EXPECT_EQ(messenger_.ChannelUpdateSubscribe(Eng(), "c", nullptr), 0u);
  EXPECT_EQ(null.releases, 1);
  const auto listener = [](const uint8_t*, size_t, const Embedder::Reply&) {};
  embedder_->Listen("c", listener);
  embedder_->Listen("c", listener);
  embedder_->Listen("c", nullptr);
  embedder_->Listen("c", nullptr);
  EXPECT_EQ(probe.told, "+-");
  messenger_.ChannelUpdateUnsubscribe(Eng(), "d", id);
  EXPECT_EQ(probe.releases, 0) << "another channel's";
  messenger_.ChannelUpdateUnsubscribe(Eng(), "c", id);
  EXPECT_EQ(probe.releases, 1);
  embedder_->Listen("c", listener);
  EXPECT_EQ(probe.told, "+-");
  EXPECT_EQ(other.calls, 0);
  embedder_->DestroyEngine();
  EXPECT_EQ(other.releases, 1);
}

// ---- View ----

TEST_F(EmbedderTest, SubscribersAreToldOfWhatChanged) {
  Start(R"({"view": {"visibility": 1, "pixel_ratio": 1.5}})");
  Probe visibility, keyboard, theme, orientation, device;
  const auto id = view_.WindowVisibilityChangedSubscribe(Win(), &visibility.slot);
  view_.KeyboardVisibilityChangedSubscribe(Win(), &keyboard.slot);
  view_.ThemeChangedSubscribe(Win(), &theme.slot);
  view_.WindowOrientationChangedSubscribe(Win(), &orientation.slot);
  view_.DeviceOrientationChangedSubscribe(Win(), &device.slot);
  const auto calls = [&] {
    return std::to_string(visibility.calls) + std::to_string(keyboard.calls) +
           std::to_string(theme.calls) + std::to_string(orientation.calls) +
           std::to_string(device.calls);
  };
  const struct {
    std::function<void()> act;
    const char* calls;
  } cases[] = {
      {[&] { view_.Fullscreen(Win()); }, "10000"},
      {[&] { view_.Fullscreen(Win()); }, "10000"},
      {[&] { view_.MinimizeWindow(Win()); }, "20000"},
      {[&] { view_.Activate(Win()); }, "30000"},
      {[&] { embedder_->ChangeView([](View& view) { view.width = 5; }); }, "30000"},
      {[&] {
         embedder_->ChangeView([](View& view) {
           ChangeView(R"({"keyboard": true,
             "theme": {"texts": ["a", "b", "c", "d"]}, "orientation": 90})",
                      &view);
         });
       },
       "31110"},
      {[&] { embedder_->ChangeView([](View& view) { view.device_orientation = 270; }); }, "31111"},
      {[&] {
         view_.ThemeChangedUnsubscribe(Win(), id);
         view_.MaximizeWindow(Win());
       },
       "41111"},
      {[&] {
         view_.WindowVisibilityChangedUnsubscribe(Win(), id);
         view_.Fullscreen(Win());
       },
       "41111"},
  };
  for (const auto& it : cases) {
    it.act();
    EXPECT_EQ(calls(), it.calls);
  }
  EXPECT_EQ(visibility.releases, 1);
  EXPECT_EQ(view_.GetWindowWidth(Win()), 5u);
  EXPECT_EQ(view_.GetDevicePixelRatio(Win()), 1.5f);
  EXPECT_TRUE(view_.SetStatusbarVisibility(Win(), 2));
  EXPECT_FALSE(view_.SetStatusbarVisibility(Win(), 3));
  EXPECT_EQ(view_.GetStatusbarVisibility(Win()), 2u);
  void* handle = this;
  view_.GetEGLDisplay(Win(), &handle);
  EXPECT_EQ(handle, nullptr);
  embedder_->DestroyEngine();
  EXPECT_EQ(keyboard.releases + theme.releases + orientation.releases + device.releases, 4);
}

TEST_F(EmbedderTest, ChunkOwnsThemeAndPayload) {
  Start(R"({"payload": {"a": [1, 2.5]}, "view": {"theme": {"flag": true, "values": [1, 2, 3, 4],
            "texts": ["", "b", "c", "d"]}}})");
  const uint32_t chunk = view_.LockResources(Win());
  FlutterOstrelTheme theme{};
  ForgeBufferView payload{};
  EXPECT_NE(view_.GetTheme(Win(), chunk + 1, &theme, sizeof theme), 0u);
  EXPECT_NE(view_.GetTheme(Win(), chunk, nullptr, sizeof theme), 0u);
  EXPECT_EQ(view_.GetTheme(Win(), chunk, &theme, offsetof(FlutterOstrelTheme, texts)), 0u);
  EXPECT_EQ(theme.values[3], 4u);
  EXPECT_EQ(theme.texts[1], nullptr) << "not asked for";
  EXPECT_EQ(view_.GetTheme(Win(), chunk, &theme, sizeof theme), 0u);
  EXPECT_STREQ(theme.texts[1], "b");
  EXPECT_EQ(view_.GetWindowPayload(Win(), chunk, &payload, sizeof payload), 0u);
  EXPECT_EQ(ToText(EncodableValue::Deserialize(&payload)), R"({"a":[1,2.5]})");
  view_.UnlockResources(Win(), chunk);
  view_.UnlockResources(Win(), chunk);
  EXPECT_NE(view_.GetWindowPayload(Win(), chunk, &payload, sizeof payload), 0u);
}

TEST_F(EmbedderTest, WindowsAnswerOnceLater) {
  Start(
      R"({"main_window_result": {"value": 5, "text": "t"}, "popup_window_result": {"value": 6}})");
  Probe main, popup, null;
  const auto bytes = EncodableValue(EncodableMap{{"k", int32_t{1}}}).Serialize();
  const uint8_t huge[] = {12, 255, 255, 255, 255, 255};
  const FlutterOstrelWindowParameters parameters = {sizeof parameters, bytes.GetData(),
                                                    bytes.GetSize(), "one", nullptr};
  EXPECT_EQ(application_table_.CreateMainWindow(App(), &parameters, &main.result_slot), 0u);
  EXPECT_NE(application_table_.CreateMainWindow(App(), nullptr, &null.result_slot), 0u);
  EXPECT_EQ(null.releases, 1);
  view_.CreatePopupWindow(Win(), "entry", nullptr, nullptr, 5, &popup.result_slot);
  view_.CloseWindow(Win(), huge, sizeof huge);
  EXPECT_EQ(main.calls + popup.calls, 0);
  Settle();
  EXPECT_EQ(main.told, "5t");
  EXPECT_EQ(popup.told, "6(null)");
  EXPECT_EQ(main.calls + main.releases + popup.calls + popup.releases, 4);
  EXPECT_EQ(ActionsOf("CreateMainWindow"),
            Texts{R"({"first_text":"one","payload":{"k":1},"second_text":null})"});
  EXPECT_EQ(ActionsOf("CreatePopupWindow"),
            Texts{R"({"entry_point":"entry","payload":null,"text":null})"});
  EXPECT_EQ(ActionsOf("CloseWindow"),
            Texts{R"({"result_fault":"it declares more than it holds"})"});
}

// ---- Textures ----

TEST_F(EmbedderTest, FramesAreFetchedUntilTheTextureIsGone) {
  Start(R"({"view": {"width": 2, "height": 3}})");
  struct Source {
    std::vector<uint8_t> pixels = std::vector<uint8_t>(24);
    FlutterOstrelPixelBuffer buffer{};
    Probe frame, texture;
  } source;
  const auto fetch = [](size_t width, size_t height, void* data) -> const auto* {
    auto& it = *static_cast<Source*>(data);
    it.frame.releases = 0;
    it.buffer = {sizeof it.buffer, it.pixels.data(), width, height, Probe::Release, &it.frame};
    if (++it.frame.calls == 2) it.buffer.width = std::numeric_limits<size_t>::max() / 2;
    return it.frame.calls == 3 ? nullptr : &it.buffer;
  };
  FlutterOstrelTextureDescriptor descriptor{};
  descriptor.kind = FLUTTER_OSTREL_PIXEL_BUFFER;
  EXPECT_EQ(texture_.RegisterTexture(Eng(), &descriptor), -1);
  EXPECT_EQ(texture_.RegisterTexture(Eng(), nullptr), -1);
  descriptor.source.pixel_buffer = {fetch, &source};
  const int64_t id = texture_.RegisterTexture(Eng(), &descriptor);
  EXPECT_EQ(id, 1);
  EXPECT_FALSE(texture_.MarkTextureFrameAvailable(Eng(), id + 1));
  for (int i = 0; i < 3; ++i) EXPECT_TRUE(texture_.MarkTextureFrameAvailable(Eng(), id));
  EXPECT_EQ(source.frame.calls, 0);
  Settle();
  EXPECT_EQ(ActionsOf("Frame").size(), 1u);
  EXPECT_EQ(ActionsOf("Frame")[0].rfind(R"({"bytes":24,"height":3,"sha256":"9d908ecf)", 0), 0u)
      << ActionsOf("Frame")[0];
  EXPECT_EQ(ActionsOf("NoFrame"), (Texts{R"({"texture":1})", R"({"texture":1})"}));

  EXPECT_TRUE(texture_.MarkTextureFrameAvailable(Eng(), id));
  EXPECT_TRUE(texture_.UnregisterTexture(Eng(), id, Probe::Call, &source.texture));
  EXPECT_FALSE(texture_.UnregisterTexture(Eng(), id, Probe::Call, &source.texture));
  EXPECT_EQ(source.texture.calls, 0);
  Settle();
  EXPECT_EQ(source.texture.calls, 1);
  EXPECT_EQ(source.frame.calls, 3) << "no frame after it";
}

// ---- The end ----

int destroyed;
FlutterOstrelViewProcTable* destroyed_view;
_FlutterOstrelView* destroyed_handle;

TEST_F(EmbedderTest, EngineEndsOrderly) {
  Start();
  destroyed = 0;
  destroyed_view = &view_;
  destroyed_handle = Win();
  context_.EngineDestroyedSubscribe(Eng(), nullptr);
  context_.EngineDestroyedSubscribe(Eng(), [](_FlutterOstrelEngine*) {
    if (destroyed_view->GetWindowWidth(destroyed_handle) != 0) ++destroyed;
  });
  Probe task, subscription, update, window, after, texture;
  application_table_.EnqueueTask(App(), &task.slot, 0);
  view_.ThemeChangedSubscribe(Win(), &subscription.slot);
  messenger_.ChannelUpdateSubscribe(Eng(), "c", &update.bool_slot);
  const FlutterOstrelWindowParameters parameters{};
  application_table_.CreateMainWindow(App(), &parameters, &window.result_slot);
  view_.LockResources(Win());
  embedder_->DestroyEngine();
  embedder_->DestroyEngine();
  EXPECT_EQ(destroyed, 1);
  for (const Probe* probe : {&task, &subscription, &update, &window}) {
    EXPECT_EQ(probe->calls, 0);
    EXPECT_EQ(probe->releases, 1);
  }
  EXPECT_EQ(view_.ThemeChangedSubscribe(Win(), &after.slot), 0u);
  EXPECT_EQ(after.releases, 1);
}

// Null handles, stale ones, and those of the wrong kind: neutral results, and slots are released.
TEST_F(EmbedderTest, WrongHandlesAreHarmless) {
  Start();
  void* const stale = App();
  Start();
  void* const wrong[] = {nullptr, stale, Eng(), reinterpret_cast<void*>(~uintptr_t{0})};
  for (void* handle : wrong) {
    auto* const app = static_cast<_FlutterOstrelApplication*>(handle);
    auto* const win = static_cast<_FlutterOstrelView*>(handle);
    auto* const eng = handle == Eng() ? reinterpret_cast<_FlutterOstrelEngine*>(Win())
                                      : static_cast<_FlutterOstrelEngine*>(handle);
    Probe task, window, popup, subscription, update;
    application_table_.EnqueueTask(app, &task.slot, 0);
    application_table_.Exit(app, 9);
    int count = 7;
    application_table_.GetDartEntryPointArgs(app, &count, nullptr);
    EXPECT_EQ(count, 0);
    EXPECT_NE(application_table_.CreateMainWindow(app, nullptr, &window.result_slot), 0u);
    view_.CreatePopupWindow(win, nullptr, nullptr, nullptr, 0, &popup.result_slot);
    EXPECT_EQ(view_.LockResources(win), 0u);
    EXPECT_EQ(view_.ThemeChangedSubscribe(win, &subscription.slot), 0u);
    EXPECT_EQ(messenger_.ChannelUpdateSubscribe(eng, "c", &update.bool_slot), 0u);
    EXPECT_FALSE(messenger_.Send(eng, "c", nullptr, 0, Probe::Reply, nullptr));
    EXPECT_EQ(context_.ViewProcTableLoad(&view_, sizeof view_, win), 0u);
    for (const Probe* probe : {&task, &window, &popup, &subscription, &update}) {
      EXPECT_EQ(probe->releases, 1);
      EXPECT_EQ(probe->calls, 0);
    }
  }
}

// A subscriber may unsubscribe itself, and end the engine, within its call.
TEST_F(EmbedderTest, SlotMayEndWhatCallsIt) {
  Start();
  static Embedder* embedder;
  embedder = embedder_.get();
  Probe after;
  FlutterOstrelSlot slot{sizeof slot, [](void*) { embedder->DestroyEngine(); }, nullptr, nullptr};
  view_.WindowVisibilityChangedSubscribe(Win(), &slot);
  view_.WindowVisibilityChangedSubscribe(Win(), &after.slot);
  view_.Fullscreen(Win());
  EXPECT_EQ(after.calls, 0);
  EXPECT_EQ(after.releases, 1);
}

// ---- JSON ----

TEST(EmbedderJsonTest, ValuesGoThereAndBack) {
  const char* const texts[] = {"null", "[true,2147483647,2147483648,-1.5,5.0]", "1e+300",
                               R"({"a":{"":[]},"b":"\u0001ä"})"};
  for (const char* text : texts) {
    EXPECT_EQ(ToText(ParseDescription(std::string("{\"payload\":") + text + "}").payload), text);
  }
  EXPECT_EQ(ToText(EncodableValue(
                EncodableMap{{int32_t{5}, std::vector<uint8_t>{1, 2}},
                             {cw::EncodableList{true}, std::numeric_limits<double>::infinity()},
                             {"a\xff", std::vector<float>{0.5F}}})),
            "{\"5\":[1,2],\"a\xEF\xBF\xBD\":[0.5],\"[true]\":null}");
  const auto nested = [](size_t depth) {
    return "{\"payload\":" + std::string(depth, '[') + std::string(depth, ']') + "}";
  };
  EXPECT_NO_THROW(ParseDescription(nested(kDeepestJson)));
  EXPECT_THROW(ParseDescription(nested(100000)), std::runtime_error);
}

}  // namespace
}  // namespace desk
