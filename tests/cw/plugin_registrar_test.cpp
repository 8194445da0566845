#include "cw/plugin_registrar.h"

#include <stdexcept>

#include "tests/support/fake_embedder.h"
#include "tests/support/test_base.h"

namespace {

using cw::PluginRegistrar;
using cw::PluginRegistrarManager;
using Context = FlutterOstrelPluginContext;
using Lines = std::vector<std::string>;

PluginRegistrar* GetRegistrar(Context* context) {
  return PluginRegistrarManager::GetInstance()->GetRegistrarImpl(context);
}

class PluginRegistrarTest : public test::TestBase {
 protected:
  void TearDown() override {
    PluginRegistrarManager::OnRegistrarDestroyed(embedder_.context.engine);
    TestBase::TearDown();
  }

  test::LogCapture log_;
  test::ErrorCapture error_;
  test::FakeEmbedder embedder_;
};

TEST_F(PluginRegistrarTest, FailingLoadersAreDoneWithout) {
  for (const char* table : {"Application", "View", "Messenger", "Texture"}) {
    embedder_.answers[std::string(table) + "ProcTableLoad"] = 0;
  }
  auto* registrar = GetRegistrar(embedder_.GetContext());
  ASSERT_TRUE(registrar);
  EXPECT_FALSE(registrar->GetApplication() || registrar->GetView() || registrar->GetMessenger() ||
               registrar->GetTextures());
  EXPECT_EQ("", registrar->GetLibraryPath());
  EXPECT_EQ(nullptr, GetRegistrar(nullptr));
}

TEST_F(PluginRegistrarTest, OneRegistrarAnEngineUntilItEnds) {
  auto* registrar = GetRegistrar(embedder_.GetContext());
  EXPECT_EQ((Lines{"ApplicationProcTableLoad", "ViewProcTableLoad", "MessengerProcTableLoad",
                   "TextureProcTableLoad", "EngineDestroyedSubscribe"}),
            embedder_.TakeCalls());
  EXPECT_EQ("text", registrar->GetLibraryPath());
  embedder_.TakeCalls();
  EXPECT_EQ(registrar, GetRegistrar(embedder_.GetContext()));
  EXPECT_TRUE(embedder_.TakeCalls().empty());
  const std::weak_ptr<cw::ApplicationWrapper> application = registrar->GetApplication();
  embedder_.engine_destroyed(embedder_.context.engine);
  EXPECT_TRUE(application.expired());

  embedder_.within["EngineDestroyedSubscribe"] = [this] {
    embedder_.engine_destroyed(embedder_.context.engine);
  };
  EXPECT_EQ(nullptr, GetRegistrar(embedder_.GetContext()));
}

class Probe : public cw::Plugin {
 public:
  explicit Probe(std::function<void(Probe*)> release) : release_(std::move(release)) {}
  void Release() override { release_(this); }

 private:
  const std::function<void(Probe*)> release_;
};

TEST_F(PluginRegistrarTest, PluginsAreReleasedOnceInTheOrderOfTheirAddresses) {
  auto* registrar = GetRegistrar(embedder_.GetContext());
  std::vector<cw::Plugin*> released;
  std::vector<std::shared_ptr<cw::Plugin>> plugins;
  for (int i = 0; i < 3; ++i) {
    plugins.push_back(std::make_shared<Probe>([&](Probe* probe) {
      released.push_back(probe);
      throw std::runtime_error("cause");
    }));
  }
  plugins.push_back(std::make_shared<cw::Plugin>());
  for (int i = 0; i < 2; ++i) {
    for (const auto& plugin : plugins) registrar->AddPlugin(plugin);
  }
  registrar->AddPlugin(nullptr);
  for (int i = 0; i < 2; ++i) registrar->ClearPlugins();
  plugins.pop_back();
  std::sort(plugins.begin(), plugins.end());
  ASSERT_EQ(3u, released.size());
  for (size_t i = 0; i < 3; ++i) {
    EXPECT_EQ(plugins[i].get(), released[i]);
    EXPECT_EQ(1, plugins[i].use_count());
  }
  EXPECT_EQ(3u, log_.TakeLines().size());
}

TEST_F(PluginRegistrarTest, ReleaseMayAddAndClearAndUseTheMessenger) {
  auto* registrar = GetRegistrar(embedder_.GetContext());
  const auto late = std::make_shared<cw::Plugin>();
  const auto release = [&](Probe*) {
    registrar->ClearPlugins();
    registrar->AddPlugin(late);
    registrar->GetMessenger()->Send("bye", nullptr, 0, nullptr);
  };
  embedder_.TakeCalls();
  registrar->AddPlugin(std::make_shared<Probe>(release));
  registrar->ClearPlugins();
  EXPECT_EQ(2, late.use_count());
  registrar->ClearPlugins();
  registrar->AddPlugin(std::make_shared<Probe>(release));
  embedder_.engine_destroyed(embedder_.context.engine);
  EXPECT_EQ(1, late.use_count());  // At the end nothing is taken any more.
  EXPECT_EQ("Send(engine, bye, 0) Send(engine, bye, 0)", embedder_.TakeTrace());
}

// A loader asks for the registrar that is being made.
TEST_F(PluginRegistrarTest, LoaderMayAskForTheRegistrar) {
  PluginRegistrar* inner = nullptr;
  Context* const context = embedder_.GetContext();
  embedder_.within["ViewProcTableLoad"] = [&] {
    embedder_.within.erase("ViewProcTableLoad");
    inner = GetRegistrar(context);
  };
  EXPECT_EQ(GetRegistrar(context), inner);
  const auto calls = embedder_.TakeCalls();
  EXPECT_EQ(1, std::count(calls.begin(), calls.end(), "EngineDestroyedSubscribe"));
}

// ---- Textures ----

using cw::TextureRegistrar;

TEST_F(PluginRegistrarTest, TextureIsAskedForItsFrames) {
  const auto textures = TextureRegistrar::Create(embedder_.GetContext());
  EXPECT_EQ(-1, textures->RegisterTexture(nullptr));
  EXPECT_EQ("Attempting to register unknown texture variant.\n", error_.TakeText());

  FlutterOstrelPixelBuffer frame{};
  cw::Texture texture = cw::PixelBufferTexture([&](size_t width, size_t height) {
    frame.width = width;
    frame.height = height;
    if (width == 0) throw std::runtime_error("cause");
    return &frame;
  });
  EXPECT_EQ(1, textures->RegisterTexture(&texture));
  EXPECT_EQ(FLUTTER_OSTREL_PIXEL_BUFFER, embedder_.descriptor.kind);
  const auto pixels = embedder_.descriptor.source.pixel_buffer;
  EXPECT_EQ(&texture, pixels.user_data);
  EXPECT_EQ(&frame, pixels.callback(3, 4, pixels.user_data));
  EXPECT_EQ(4u, frame.height);
  EXPECT_EQ(nullptr, pixels.callback(0, 0, pixels.user_data));
  EXPECT_NE(std::string::npos, log_.TakeLine().find("cause"));

  FlutterOstrelOpenGLTexture image{};
  texture = cw::OpenGLTexture([&](size_t, size_t) { return &image; });
  EXPECT_EQ(nullptr, pixels.callback(3, 4, pixels.user_data));  // No longer of that kind.
  EXPECT_EQ(1, textures->RegisterTexture(&texture));
  EXPECT_EQ(FLUTTER_OSTREL_OPENGL, embedder_.descriptor.kind);
  const auto gl = embedder_.descriptor.source.opengl;
  EXPECT_EQ(3 * sizeof(void*), gl.size);
  EXPECT_EQ(&image, gl.callback(3, 4, gl.user_data));
}

TEST_F(PluginRegistrarTest, TextureTellsOnceThatItIsGone) {
  const auto textures = TextureRegistrar::Create(embedder_.GetContext());
  const auto token = std::make_shared<int>();
  const auto unregister = [&] { return textures->UnregisterTexture(1, [token] { ++*token; }); };
  EXPECT_TRUE(unregister());
  for (int i = 0; i < 2; ++i) embedder_.unregistered_callback(embedder_.user_data);
  EXPECT_EQ(1, *token);
  EXPECT_EQ(1, token.use_count());
  embedder_.answers["UnregisterTexture"] = 0;
  EXPECT_FALSE(unregister());
  EXPECT_EQ(1, token.use_count());
  embedder_.within["UnregisterTexture"] = [this] {
    embedder_.unregistered_callback(embedder_.user_data);
  };
  EXPECT_FALSE(unregister());  // Refused, and told all the same.
  EXPECT_EQ(2, *token);
  EXPECT_EQ(1, token.use_count());
}

}  // namespace
