// A plug-in that follows its window, shows a texture, opens a popup window, and offers an intent:
// it opens URIs for all applications by printing them.
//
// Run it headless: tavo-embed libwindow_plugin.so --description window.json
#include <cw/map_access.h>
#include <cw/plugin_registrar.h>
#include <forge/fence.h>
#include <forge/library.h>
#include <forge/library_api.h>
#include <forge/signals.h>
#include <platform/flutter_ostrel/flutter_ostrel.h>
#include <src/tavo_capi.h>

#include <array>
#include <cstdio>
#include <memory>

namespace {

// The service behind the C tables of the libtavo.so in the application's directory.
class IntentService {
 public:
  explicit IntentService(const std::filesystem::path& directory)
      : library_(forge::Library::Create(directory / "libtavo.so")) {
    if (!library_) return;
    const auto load =
        library_->Resolve<forge::LibraryApi<TAVOProcTable>::Loader>("TAVOProcTableLoad");
    top_ = forge::LibraryApi<TAVOProcTable>::Create(library_, load);
    if (!top_) return;
    intents_ = forge::LibraryApi<TAVOIntentManagerProcTable>::Create(
        library_, top_->Get().IntentManagerProcTableLoad);
  }

  // Offers the intent for as long as the process lives. The handler's result is the answer.
  bool Offer(const char* name, std::function<cw::EncodableMap()> handler) {
    if (!intents_) return false;
    auto slot = forge::CreateSlot<TAVORegisterIntentSlot, TAVOReplyIntentSlot*>(
        [handler = std::move(handler)](TAVOReplyIntentSlot* reply) {
          forge::Fence("intent", [&] {
            const auto bytes = cw::EncodableValue(handler()).Serialize();
            reply->reply(reply->context, bytes.GetData(),
                         static_cast<unsigned int>(bytes.GetSize()));
          });
          reply->release(reply->context);
        });
    auto* const manager = top_->Get().GetIntentManager(top_->Get().Initialize());
    if (intents_->Get().RegisterIntent(manager, name, &slot) == FORGE_RESULT_OK) return true;
    slot.release(slot.user_data);
    return false;
  }

 private:
  std::shared_ptr<forge::Library> library_;
  std::unique_ptr<forge::LibraryApi<TAVOProcTable>> top_;
  std::unique_ptr<forge::LibraryApi<TAVOIntentManagerProcTable>> intents_;
};

// Two pixels by two, all red. The renderer may ask for the frame until the texture is gone.
struct RedTexture {
  std::array<uint8_t, 16> bytes{255, 0, 0, 255, 255, 0, 0, 255, 255, 0, 0, 255, 255, 0, 0, 255};
  FlutterOstrelPixelBuffer buffer{sizeof buffer, bytes.data(), 2, 2, nullptr, nullptr};
  cw::Texture texture = cw::PixelBufferTexture([this](size_t, size_t) { return &buffer; });
};

class WindowPlugin final : public cw::Plugin {
 public:
  explicit WindowPlugin(cw::PluginRegistrar* registrar)
      : registrar_(registrar), intents_(registrar->GetLibraryPath()) {}

  bool Start() {
    texture_id_ = registrar_->GetTextures()->RegisterTexture(&texture_->texture);
    orientation_ = View().WindowOrientationChangedSubscribe([this] { OnTurned(); });
    return intents_.Offer("OpenURI", [] {
      std::puts("a URI is opened");
      return cw::EncodableMap{{"opened", true}};
    });
  }

  void Release() override {
    View().WindowOrientationChangedUnsubscribe(orientation_);
    registrar_->GetTextures()->UnregisterTexture(texture_id_, [kept = texture_] {});
  }

 private:
  cw::ViewWrapper& View() { return *registrar_->GetView(); }

  void OnTurned() {
    std::printf("the window is turned by %u degrees\n", View().GetWindowOrientation());
    registrar_->GetTextures()->MarkTextureFrameAvailable(texture_id_);
    const auto on_result = [this](const cw::EncodableValue& result, const std::string&) {
      std::printf("the popup window answers %s\n", result.Get<std::string>().c_str());
      registrar_->GetApplication()->Exit(0);
    };
    View().CreatePopupWindow("ask", "Turn back?", nullptr, on_result);
  }

  cw::PluginRegistrar* const registrar_;  // Owns this.
  IntentService intents_;
  const std::shared_ptr<RedTexture> texture_ = std::make_shared<RedTexture>();
  int64_t texture_id_ = -1;
  unsigned int orientation_ = 0;
};

}  // namespace

uint32_t FlutterOstrelPluginRegister(FlutterOstrelPluginContext* context) {
  auto* const registrar = cw::PluginRegistrarManager::GetInstance()->GetRegistrarImpl(context);
  if (!registrar || !registrar->GetApplication() || !registrar->GetView()) return 0;
  if (!registrar->GetTextures()) return 0;
  const auto plugin = std::make_shared<WindowPlugin>(registrar);
  registrar->AddPlugin(plugin);  // Its Release undoes what Start began.
  return plugin->Start() ? 1 : 0;
}
