#include "cw/plugin_registrar.h"

#include <stdexcept>

#include "tests/support/fake_embedder.h"

namespace {

using cw::PluginRegistrarManager;

struct Probe : cw::Plugin {
  std::function<void()> release;
  void Release() override { release(); }
};

class PluginRegistrarTest : public test::EmbedderTest {
 protected:
  void TearDown() override {
    PluginRegistrarManager::OnRegistrarDestroyed(embedder_.context.engine);
    EmbedderTest::TearDown();
  }

  cw::PluginRegistrar* GetRegistrar() {
    return PluginRegistrarManager::GetInstance()->GetRegistrarImpl(embedder_.GetContext());
  }
};

TEST_F(PluginRegistrarTest, FailingLoadersAreDoneWithout) {
  for (const char* table : {"Application", "View", "Messenger", "Texture"}) {
    embedder_.answers[std::string(table) + "ProcTableLoad"] = 0;
  }
  auto* registrar = GetRegistrar();
  ASSERT_TRUE(registrar);
  EXPECT_FALSE(registrar->GetApplication() || registrar->GetView() || registrar->GetMessenger() ||
               registrar->GetTextures());
  EXPECT_EQ("", registrar->GetLibraryPath());
  EXPECT_EQ(nullptr, PluginRegistrarManager::GetInstance()->GetRegistrarImpl(nullptr));
}

TEST_F(PluginRegistrarTest, OneRegistrarAnEngineUntilItEnds) {
  auto* registrar = GetRegistrar();
  EXPECT_EQ("text", registrar->GetLibraryPath());
  EXPECT_EQ(registrar, GetRegistrar());
  EXPECT_EQ(
      "ApplicationProcTableLoad(application) ViewProcTableLoad(view) MessengerProcTableLoad(engine)"
      " TextureProcTableLoad(engine) EngineDestroyedSubscribe(engine)"
      " GetPath(application, 1, 0) GetPath(application, 1, 5)",
      embedder_.TakeTrace());
  const std::weak_ptr<cw::ApplicationWrapper> application = registrar->GetApplication();
  const auto end = [this] { embedder_.engine_destroyed(embedder_.context.engine); };
  end();
  EXPECT_TRUE(application.expired());
  embedder_.within["EngineDestroyedSubscribe"] = end;
  EXPECT_EQ(nullptr, GetRegistrar());
}

// A loader asks for the registrar that is being made.
TEST_F(PluginRegistrarTest, LoaderMayAskForTheRegistrar) {
  cw::PluginRegistrar* inner = nullptr;
  embedder_.within["ViewProcTableLoad"] = [&] {
    embedder_.within.clear();
    inner = GetRegistrar();
  };
  EXPECT_EQ(GetRegistrar(), inner);
  const auto calls = embedder_.TakeCalls();
  EXPECT_EQ(1, std::count(calls.begin(), calls.end(), "EngineDestroyedSubscribe"));
}

TEST_F(PluginRegistrarTest, PluginsAreReleasedOnceInTheOrderOfTheirAddresses) {
  auto* registrar = GetRegistrar();
  const auto probes = std::make_shared<std::array<Probe, 3>>();
  embedder_.TakeTrace();
  embedder_.within["1"] = [] { throw std::runtime_error("cause"); };
  for (const size_t i : {2, 0, 1, 2}) {
    (*probes)[i].release = embedder_.Watch(std::to_string(i));
    registrar->AddPlugin({probes, &(*probes)[i]});
  }
  registrar->AddPlugin(nullptr);
  registrar->AddPlugin(std::make_shared<cw::Plugin>());
  embedder_.TakeTrace();
  for (int i = 0; i < 2; ++i) registrar->ClearPlugins();
  EXPECT_EQ("0() 1() 2()", embedder_.TakeTrace());
  EXPECT_EQ(1, probes.use_count());
  EXPECT_NE(std::string::npos, log_.TakeLine().find("cause"));
}

TEST_F(PluginRegistrarTest, ReleaseMayAddAndClearAndUseTheMessenger) {
  auto* registrar = GetRegistrar();
  const auto probe = std::make_shared<Probe>();
  probe->release = [&] {
    registrar->ClearPlugins();
    registrar->AddPlugin(probe);
    registrar->GetMessenger()->Send("bye", nullptr, 0, nullptr);
  };
  embedder_.TakeTrace();
  registrar->AddPlugin(probe);
  registrar->ClearPlugins();
  EXPECT_EQ(2, probe.use_count());
  embedder_.engine_destroyed(embedder_.context.engine);
  EXPECT_EQ(1, probe.use_count());  // At the end nothing is taken any more.
  EXPECT_EQ("Send(engine, bye, 0) Send(engine, bye, 0)", embedder_.TakeTrace());
}

TEST_F(PluginRegistrarTest, TextureIsAskedForItsFrames) {
  test::ErrorCapture error;
  const auto textures = cw::TextureRegistrar::Create(embedder_.GetContext());
  const auto ask = [](const auto& source) { return source.callback(3, 4, source.user_data); };
  const auto& source = embedder_.descriptor.source;
  FlutterOstrelPixelBuffer frame{};
  cw::Texture texture = cw::PixelBufferTexture([&](size_t width, size_t height) {
    if (width != 3 || height != 4) throw std::runtime_error("cause");
    return &frame;
  });
  EXPECT_EQ(1, textures->RegisterTexture(&texture));
  EXPECT_EQ(FLUTTER_OSTREL_PIXEL_BUFFER, embedder_.descriptor.kind);
  const auto pixels = source.pixel_buffer;
  EXPECT_EQ(&frame, ask(pixels));
  EXPECT_EQ(nullptr, pixels.callback(0, 0, pixels.user_data));
  EXPECT_NE(std::string::npos, log_.TakeLine().find("cause"));

  FlutterOstrelOpenGLTexture image{};
  texture = cw::OpenGLTexture([&](size_t, size_t) { return &image; });
  EXPECT_EQ(nullptr, ask(pixels));  // No longer of that kind.
  EXPECT_EQ(1, textures->RegisterTexture(&texture));
  EXPECT_EQ(FLUTTER_OSTREL_OPENGL, embedder_.descriptor.kind);
  EXPECT_EQ(3 * sizeof(void*), source.opengl.size);
  EXPECT_EQ(&image, ask(source.opengl));
  EXPECT_EQ(-1, textures->RegisterTexture(nullptr));
  EXPECT_EQ("Attempting to register unknown texture variant.\n", error.TakeText());
}

TEST_F(PluginRegistrarTest, TextureTellsOnceThatItIsGone) {
  const auto textures = cw::TextureRegistrar::Create(embedder_.GetContext());
  const auto tell = [this] { embedder_.unregistered_callback(embedder_.user_data); };
  embedder_.TakeTrace();
  EXPECT_TRUE(textures->UnregisterTexture(1, embedder_.Watch("gone")));
  tell();
  tell();
  EXPECT_EQ("UnregisterTexture(engine, 1) gone() ~gone()", embedder_.TakeTrace());
  embedder_.answers["UnregisterTexture"] = 0;
  EXPECT_FALSE(textures->UnregisterTexture(1, embedder_.Watch("gone")));
  EXPECT_EQ("UnregisterTexture(engine, 1) ~gone()", embedder_.TakeTrace());
  embedder_.within["UnregisterTexture"] = tell;  // Refused, and told all the same.
  EXPECT_FALSE(textures->UnregisterTexture(1, embedder_.Watch("gone")));
  EXPECT_EQ("UnregisterTexture(engine, 1) gone() ~gone()", embedder_.TakeTrace());
}

}  // namespace
