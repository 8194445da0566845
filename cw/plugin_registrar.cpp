#include "cw/plugin_registrar.h"

#include <utility>

#include "forge/fence.h"
#include "forge/proc_table.h"

namespace cw {

Plugin::~Plugin() = default;

void Plugin::Release() {}

PluginRegistrar::PluginRegistrar(FlutterOstrelPluginContext* context)
    : application_(ApplicationWrapper::Create(context)),
      view_(ViewWrapper::Create(context)),
      messenger_(BinaryMessenger::Create(context)),
      textures_(TextureRegistrar::Create(context)) {}

PluginRegistrar::~PluginRegistrar() {
  is_ending_ = true;
  ClearPlugins();  // While the messenger still exists.
  messenger_.reset();
  textures_.reset();
}

void PluginRegistrar::AddPlugin(const std::shared_ptr<Plugin>& plugin) {
  if (plugin && !is_ending_) plugins_.insert(plugin);
}

void PluginRegistrar::ClearPlugins() {
  const Plugins plugins = std::exchange(plugins_, {});
  for (const auto& plugin : plugins) forge::Fence("plug-in release", [&] { plugin->Release(); });
}

std::filesystem::path PluginRegistrar::GetLibraryPath() const {
  return application_ ? application_->GetLibraryPath({}) : std::filesystem::path();
}

PluginRegistrarManager* PluginRegistrarManager::GetInstance() {
  static auto* const instance = new PluginRegistrarManager;
  return instance;
}

PluginRegistrar* PluginRegistrarManager::GetRegistrarImpl(FlutterOstrelPluginContext* context) {
  using Context = FlutterOstrelPluginContext;
  if (!context || !forge::Covered(*context, &Context::engine)) return nullptr;
  _FlutterOstrelEngine* const engine = context->engine;
  if (auto* registrar = Find(engine)) return registrar;
  auto made = std::make_unique<PluginRegistrar>(context);
  const bool is_first = registrars_.try_emplace(engine, std::move(made)).second;
  if (!is_first) return Find(engine);  // A loader has made one meanwhile; this one is destroyed.
  if (forge::Covered(*context, &Context::EngineDestroyedSubscribe)) {
    context->EngineDestroyedSubscribe(engine, OnRegistrarDestroyed);
  }
  return Find(engine);  // A new look-up: the engine may have ended within the subscription.
}

void PluginRegistrarManager::OnRegistrarDestroyed(_FlutterOstrelEngine* engine) {
  // Removed from the map first, because Release of its plug-ins may ask for registrars.
  forge::Fence("engine destroyed", [engine] { GetInstance()->registrars_.extract(engine); });
}

PluginRegistrar* PluginRegistrarManager::Find(_FlutterOstrelEngine* engine) const {
  const auto found = registrars_.find(engine);
  return found == registrars_.end() ? nullptr : found->second.get();
}

}  // namespace cw
