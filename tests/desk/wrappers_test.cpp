// The objects over the embedder's tables, on the embedder that really runs.
#include <algorithm>
#include <array>
#include <optional>

#include <QCoreApplication>

#include "cw/plugin_registrar.h"
#include "desk/embedder/embedder.h"
#include "desk/embedder/json.h"
#include "tests/support/deadline.h"
#include "tests/support/log_capture.h"
#include "tests/support/test_base.h"

namespace {

using cw::EncodableMap;
using cw::EncodableValue;
using cw::PluginRegistrar;
using cw::ViewWrapper;

class WrappersTest : public test::TestBase {
 protected:
  void SetUp() override {
    QCoreApplication::processEvents();
    TestBase::SetUp();
  }

  void Start(const std::string& description) {
    embedder_.emplace(desk::ParseDescription(description));
    registrar_ =
        cw::PluginRegistrarManager::GetInstance()->GetRegistrarImpl(embedder_->GetContext());
    ASSERT_TRUE(registrar_);
  }

  bool HasAction(const std::string& text) const {
    const auto& actions = embedder_->GetActions();
    return std::any_of(actions.begin(), actions.end(), [&](const EncodableValue& action) {
      return desk::ToText(action).find(text) != std::string::npos;
    });
  }

  char name_[5] = "test";
  char* argv_[2] = {name_, nullptr};
  int argc_ = 1;
  QCoreApplication application_{argc_, argv_};
  test::LogCapture log_;
  std::optional<desk::Embedder> embedder_;
  PluginRegistrar* registrar_ = nullptr;
};

TEST_F(WrappersTest, ApplicationIsTheDescriptions) {
  Start(R"({"information": {"2": "org.example.app"}, "directories": {"1": "/libs", "7": "/home"},
            "arguments": ["one", ""], "permissions": ["NFC"], "os_version": [5, 1, 2, 3],
            "embedder_version": [3, 16, 2], "main_window_result": {"value": 7, "text": "closed"}})");
  const auto application = registrar_->GetApplication();
  EXPECT_EQ("org.example.app",
            application->GetApplicationInfo(cw::ApplicationWrapper::InfoType{2}));
  EXPECT_EQ("/libs/libtavo.so", application->GetLibraryPath("tavo"));
  EXPECT_EQ("/home", application->GetPath(cw::ApplicationWrapper::DirectoryType{99}));
  EXPECT_EQ((std::vector<std::string>{"one", ""}), application->GetDartEntryPointArgs());
  EXPECT_TRUE(application->HasPermission(cw::Permission::kNFC));
  EXPECT_FALSE(application->HasPermission(cw::Permission::kMusic));
  EXPECT_EQ((cw::ApplicationWrapper::OSVersion{5, 1, 2, 3}), application->GetOSVersion());
  EXPECT_EQ((cw::ApplicationWrapper::EmbedderVersion{3, 16, 2}), application->GetEmbedderVersion());

  std::string told;
  const EncodableValue payload = "payload";
  EXPECT_TRUE(application->CreateMainWindow(
      "a", "b", &payload, [&](const EncodableValue& value, const std::string& text) {
        told = desk::ToText(value) + text;
        application->EnqueueTask([&] { application->Exit(4); }, 0);
      }));
  EXPECT_EQ(4, embedder_->Run());
  EXPECT_EQ("7closed", told);
  EXPECT_TRUE(HasAction("\"payload\":\"payload\""));
}

TEST_F(WrappersTest, ViewIsTheDescriptionsAndTellsItsChanges) {
  Start(R"({"view": {"visibility": 3, "orientation": 90, "device_orientation": 270, "width": 10,
                     "height": 20, "pixel_ratio": 1.5, "keyboard": true, "statusbar": 1, "type": 2,
                     "theme": {"flag": false, "values": [1, 2, 3, 4], "texts": ["a", "b", "", "d"]}},
            "payload": {"key": [1, null]}, "popup_window_result": {"value": true}})");
  ViewWrapper* const view = registrar_->GetView();
  EXPECT_TRUE(view->GetWindowMode());
  EXPECT_EQ(90u, view->GetWindowOrientation());
  EXPECT_EQ(270u, view->GetDeviceOrientation());
  EXPECT_EQ(10u, view->GetWindowWidth());
  EXPECT_EQ(20u, view->GetWindowHeight());
  EXPECT_EQ(1.5f, view->GetDevicePixelRatio());
  EXPECT_TRUE(view->IsKeyboardVisible());
  EXPECT_EQ(ViewWrapper::WindowType{2}, view->GetWindowType());
  void* display = this;
  view->GetEGLDisplay(&display);
  EXPECT_EQ(nullptr, display);
  const auto theme = view->GetTheme();
  EXPECT_FALSE(theme.flag);
  EXPECT_EQ((std::array<uint32_t, 4>{1, 2, 3, 4}), theme.values);
  EXPECT_EQ((std::array<std::string, 4>{"a", "b", "", "d"}), theme.texts);
  EXPECT_EQ(R"({"key":[1,null]})", desk::ToText(view->GetWindowPayload()));

  std::string told;
  view->WindowVisibilityChangedSubscribe([&] { told += 'v'; });
  view->WindowOrientationChangedSubscribe([&] { told += 'o'; });
  view->DeviceOrientationChangedSubscribe([&] { told += 'd'; });
  view->ThemeChangedSubscribe([&] { told += 't'; });
  unsigned int id = 0;
  id = view->KeyboardVisibilityChangedSubscribe([&] {
    view->KeyboardVisibilityChangedUnsubscribe(id);
    told += 'k';
  });
  view->MinimizeWindow();
  EXPECT_EQ(ViewWrapper::WindowVisibility{4}, view->GetWindowVisibility());
  EXPECT_TRUE(view->SetStatusbarVisibility(ViewWrapper::StatusbarVisibility{2}));
  EXPECT_EQ(ViewWrapper::StatusbarVisibility{2}, view->GetStatusbarVisibility());
  for (const bool keyboard : {false, true}) {
    embedder_->ChangeView([keyboard](desk::View& state) {
      state.keyboard = keyboard;
      state.orientation = keyboard ? 0 : 180;
      state.device_orientation = 90;
      state.theme.values[0] = 9;
    });
  }
  std::sort(told.begin(), told.end());
  EXPECT_EQ("dkootv", told);

  view->CreatePopupWindow("entry", "text", nullptr,
                          [&](const EncodableValue& value, const std::string&) {
                            view->CloseWindow(value);
                            registrar_->GetApplication()->Exit(0);
                          });
  EXPECT_EQ(0, embedder_->Run());
  EXPECT_TRUE(HasAction("\"result\":true"));
}

TEST_F(WrappersTest, MessagesGoBothWaysAndTexturesAreFetched) {
  Start(R"({"channels": {"canned": {"value": "hi"}}})");
  auto* const messenger = registrar_->GetMessenger();
  std::vector<std::string> told;
  embedder_->Listen("echo",
                    [](const uint8_t* data, size_t size, const auto& reply) { reply(data, size); });
  messenger->OnChannelUpdateSubscribe("echo", [&](bool on) { told.push_back(on ? "on" : "off"); });
  const uint8_t byte = 1;  // True.
  for (const char* channel : {"echo", "canned", "nobody"}) {
    messenger->Send(channel, &byte, 1, [&, channel](const uint8_t*, size_t size) {
      told.push_back(channel + std::to_string(size));
      if (told.size() == 3) embedder_->Listen("echo", nullptr);
    });
  }
  FlutterOstrelPixelBuffer frame{};
  frame.size = sizeof(frame);
  const uint8_t pixel[4] = {};
  frame.pixels = pixel;
  frame.width = frame.height = 1;
  cw::Texture texture = cw::PixelBufferTexture([&](size_t, size_t) { return &frame; });
  auto* const textures = registrar_->GetTextures();
  const int64_t id = textures->RegisterTexture(&texture);
  EXPECT_TRUE(textures->MarkTextureFrameAvailable(id));
  EXPECT_FALSE(textures->MarkTextureFrameAvailable(id + 1));
  EXPECT_TRUE(test::WaitUntil([&] { return HasAction("\"Frame\""); }));
  EXPECT_TRUE(textures->UnregisterTexture(id, [&] { told.push_back("gone"); }));
  EXPECT_TRUE(test::WaitUntil([&] { return told.size() == 5; }));
  std::sort(told.begin(), told.end());
  EXPECT_EQ((std::vector<std::string>{"canned4", "echo1", "gone", "nobody0", "off"}), told);
}

// Older and newer embedders: what the context and the tables cover is there.
TEST_F(WrappersTest, EveryDeclaredSizeIsLivedWith) {
  using Context = FlutterOstrelPluginContext;
  for (uint32_t size = 0; size <= sizeof(FlutterOstrelViewProcTable) + 8; ++size) {
    SCOPED_TRACE(size);
    desk::Description description;
    description.directories[1] = "/libs";
    auto& sizes = description.declared_sizes;
    if (size <= sizeof(Context) + 8) sizes.context = size;
    sizes.application = sizes.view = sizes.texture = sizes.messenger = size;
    embedder_.emplace(description);
    auto* registrar =
        cw::PluginRegistrarManager::GetInstance()->GetRegistrarImpl(embedder_->GetContext());
    const uint32_t context = sizes.context.value_or(sizeof(Context));
    EXPECT_EQ(context >= offsetof(Context, view), registrar != nullptr);
    if (!registrar) continue;
    const bool has_application = context >= offsetof(Context, ViewProcTableLoad) && size >= 4;
    EXPECT_EQ(has_application, registrar->GetApplication() != nullptr);
    const bool has_path = size >= offsetof(FlutterOstrelApplicationProcTable, HasPermission);
    EXPECT_EQ(has_application && has_path ? "/libs" : "", registrar->GetLibraryPath());
    EXPECT_EQ(context >= offsetof(Context, TextureProcTableLoad) && size >= 4,
              registrar->GetView() != nullptr);
    if (registrar->GetView()) {
      registrar->GetView()->GetTheme();
      registrar->GetView()->CloseWindow(EncodableValue());
      log_.TakeLines();
    }
    // An embedder too old to tell of the engine's end leaves the registrar to the next context.
    if (context < offsetof(Context, ApplicationProcTableLoad)) {
      cw::PluginRegistrarManager::OnRegistrarDestroyed(embedder_->GetContext()->engine);
    }
  }
}

}  // namespace
