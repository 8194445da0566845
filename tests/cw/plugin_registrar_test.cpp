#include "cw/plugin_registrar.h"

#include <stdexcept>

#include "tests/support/fake_embedder.h"

namespace {

using cw::PluginRegistrarManager;

using TextureRegistrarTest = test::WrapperTest<cw::TextureRegistrar>;

struct Probe : cw::Plugin {
  std::function<void()> release;
  void Release() override { release(); }
};

class PluginRegistrarTest : public test::EmbedderTest {
 protected:
  ~PluginRegistrarTest() override { PluginRegistrarManager::OnRegistrarDestroyed(context.engine); }

  cw::PluginRegistrar* GetRegistrar() {
    return PluginRegistrarManager::GetInstance()->GetRegistrarImpl(GetContext());
  }
};

TEST_F(PluginRegistrarTest, FailingLoadersAreDoneWithout) {
  for (const char* name : {"Application", "View", "Messenger", "Texture"}) {
    answers[std::string(name) + "ProcTableLoad"] = 0;
  }
  auto* registrar = GetRegistrar();
  ASSERT_TRUE(registrar);
  EXPECT_FALSE(registrar->GetApplication() || registrar->GetView() || registrar->GetMessenger() ||
               registrar->GetTextures());
}

TEST_F(PluginRegistrarTest, OneRegistrarAnEngineUntilItEnds) {
  auto* registrar = GetRegistrar();
  EXPECT_EQ("text", registrar->GetLibraryPath());
  EXPECT_EQ(registrar, GetRegistrar());
  const std::weak_ptr<cw::ApplicationWrapper> kept = registrar->GetApplication();
  const auto end = [this] { engine_destroyed(context.engine); };
  end();
  EXPECT_TRUE(kept.expired());
  within["EngineDestroyedSubscribe"] = end;
  EXPECT_EQ(nullptr, GetRegistrar());
}

TEST_F(PluginRegistrarTest, PluginsAreReleasedOnceInTheOrderOfTheirAddresses) {
  auto* registrar = GetRegistrar();
  const auto probes = std::make_shared<std::array<Probe, 3>>();
  const auto add = [&](size_t i) { registrar->AddPlugin({probes, &(*probes)[i]}); };
  for (const size_t i : {2, 0, 1, 2}) {
    (*probes)[i].release = Watch(std::to_string(i));
    add(i);
  }
  registrar->AddPlugin(nullptr);
  within["1"] = [] { throw std::runtime_error("cause"); };
  within["2"] = [&] {
    registrar->GetMessenger()->Send("bye", nullptr, 0, nullptr);
    add(2);
  };
  TakeTrace();
  registrar->ClearPlugins();
  EXPECT_EQ("0() 1() 2() Send(bye, 0)", TakeTrace());
  EXPECT_NE("", log_.TakeLine());
  engine_destroyed(context.engine);
  EXPECT_EQ("2() Send(bye, 0)", TakeTrace());
  EXPECT_EQ(1, probes.use_count());  // At the end nothing is taken any more.
}

TEST_F(TextureRegistrarTest, TextureIsAskedForItsFrames) {
  const auto ask = [](const auto& source) { return source.callback(3, 4, source.user_data); };
  const auto& source = descriptor.source;
  FlutterOstrelPixelBuffer frame{};
  cw::Texture shown = cw::PixelBufferTexture(
      [&](size_t width, size_t height) { return width == 3 && height == 4 ? &frame : nullptr; });
  EXPECT_EQ(1, wrapper_->RegisterTexture(&shown));
  EXPECT_EQ(FLUTTER_OSTREL_PIXEL_BUFFER, descriptor.kind);
  const auto pixels = source.pixel_buffer;
  EXPECT_EQ(&frame, ask(pixels));
  shown = cw::OpenGLTexture([](auto...) -> const FlutterOstrelOpenGLTexture* { throw 1; });
  EXPECT_EQ(nullptr, ask(pixels));  // No longer of that kind.
  EXPECT_EQ(1, wrapper_->RegisterTexture(&shown));
  EXPECT_EQ(FLUTTER_OSTREL_OPENGL, descriptor.kind);
  EXPECT_EQ(3 * sizeof(void*), source.opengl.size);
  EXPECT_EQ(nullptr, ask(source.opengl));
  EXPECT_NE("", log_.TakeLine());
  EXPECT_EQ(-1, wrapper_->RegisterTexture(nullptr));
  EXPECT_NE("", error_.TakeText());
}

TEST_F(TextureRegistrarTest, TextureTellsOnceThatItIsGone) {
  EXPECT_TRUE(wrapper_->UnregisterTexture(1, Watch("gone")));
  unregistered_callback(user_data);
  unregistered_callback(user_data);
  EXPECT_EQ("UnregisterTexture(1) gone() ~gone()", TakeTrace());
  answers["UnregisterTexture"] = 0;
  EXPECT_FALSE(wrapper_->UnregisterTexture(1, Watch("gone")));
  EXPECT_EQ("UnregisterTexture(1) ~gone()", TakeTrace());
}

}  // namespace
