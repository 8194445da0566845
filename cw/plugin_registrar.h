// A plug-in's way to its embedder: one registrar an engine, with the objects over the embedder's
// tables, which also keeps the plug-in's own objects alive until the engine ends.
//
//   uint32_t FlutterOstrelPluginRegister(FlutterOstrelPluginContext* context) {
//     auto* registrar = cw::PluginRegistrarManager::GetInstance()->GetRegistrarImpl(context);
//     if (!registrar) return 0;
//     registrar->AddPlugin(std::make_shared<MyPlugin>(registrar));
//     return 1;
//   }
//
// Threads: the embedder's; GetInstance may be called from any.
// Errors:  what a plug-in's Release throws is an error line.
#pragma once

#include <filesystem>
#include <map>
#include <memory>
#include <set>

#include "cw/application_wrapper.h"
#include "cw/binary_messenger.h"
#include "cw/texture_registrar.h"
#include "cw/view_wrapper.h"
#include "forge/export.h"
#include "platform/flutter_ostrel/flutter_ostrel.h"

namespace cw {

// The base of a plug-in's objects. Virtual operations grow only at the end.
class FORGE_EXPORT Plugin {
 public:
  virtual ~Plugin();

  // The last call, while the registrar and its objects still work.
  virtual void Release();
};

class FORGE_EXPORT PluginRegistrar {
 public:
  explicit PluginRegistrar(FlutterOstrelPluginContext* context);
  virtual ~PluginRegistrar();  // Clears the plug-ins, then ends messenger, textures and the rest.
  PluginRegistrar(const PluginRegistrar&) = delete;
  PluginRegistrar& operator=(const PluginRegistrar&) = delete;

  // Keeps the object until ClearPlugins; one that is held already, and null, change nothing.
  void AddPlugin(const std::shared_ptr<Plugin>& plugin);

  // Calls Release on each plug-in, in the order of their addresses, and drops them. A plug-in may
  // add and clear within it: what is added then stays, but for when the registrar ends: then
  // nothing is taken any more.
  void ClearPlugins();

  // The directory of the application's libraries; empty without an application.
  std::filesystem::path GetLibraryPath() const;

  // Null: the embedder does not offer it. They live as long as the registrar; the application may
  // be shared longer.
  const std::shared_ptr<ApplicationWrapper>& GetApplication() const { return application_; }
  ViewWrapper* GetView() const { return view_.get(); }
  BinaryMessenger* GetMessenger() const { return messenger_.get(); }
  TextureRegistrar* GetTextures() const { return textures_.get(); }

 private:
  using Plugins = std::set<std::shared_ptr<Plugin>>;  // Ordered by address.

  const std::shared_ptr<ApplicationWrapper> application_;
  const std::unique_ptr<ViewWrapper> view_;
  std::unique_ptr<BinaryMessenger> messenger_;
  std::unique_ptr<TextureRegistrar> textures_;
  Plugins plugins_;
  bool is_ending_ = false;
};

class FORGE_EXPORT PluginRegistrarManager {
 public:
  // The process's one; never destroyed.
  static PluginRegistrarManager* GetInstance();

  // The registrar of the context's engine, made at the first call; it lives as long as the engine.
  // Null when the context names no engine, or the engine ended within the call.
  PluginRegistrar* GetRegistrarImpl(FlutterOstrelPluginContext* context);

  // What the embedder calls when the engine is about to be destroyed: so is its registrar.
  static void OnRegistrarDestroyed(_FlutterOstrelEngine* engine);

 private:
  PluginRegistrarManager() = default;

  PluginRegistrar* Find(_FlutterOstrelEngine* engine) const;

  std::map<_FlutterOstrelEngine*, std::unique_ptr<PluginRegistrar>> registrars_;
};

}  // namespace cw
