// A plug-in's entry to its embedder: one registrar for each engine. It holds the objects over the
// embedder's tables and keeps the plug-in's own objects alive until the engine ends.
//
//   uint32_t FlutterOstrelPluginRegister(FlutterOstrelPluginContext* context) {
//     auto* registrar = cw::PluginRegistrarManager::GetInstance()->GetRegistrarImpl(context);
//     if (!registrar) return 0;
//     registrar->AddPlugin(std::make_shared<MyPlugin>(registrar));
//     return 1;
//   }
//
// Threads:   the embedder's thread; GetInstance may be called from any thread.
// Ownership: the manager owns the registrars and is never destroyed. A registrar owns what its Get
//            operations return, and shares the plug-ins with their other owners. The context is
//            borrowed until the call returns.
// Errors:    an exception of a plug-in's Release is an error line.
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

// The base class of a plug-in's objects. Virtual operations grow only at the end.
class FORGE_EXPORT Plugin {
 public:
  virtual ~Plugin();

  // The registrar's last call, while the registrar and its objects still work. Does nothing by
  // default.
  virtual void Release();
};

// The objects of one engine. Plug-ins get it from PluginRegistrarManager.
class FORGE_EXPORT PluginRegistrar {
 public:
  // A null context makes a registrar whose Get operations return null.
  explicit PluginRegistrar(FlutterOstrelPluginContext* context);

  // Calls ClearPlugins first, then destroys the messenger and the textures, then the rest.
  virtual ~PluginRegistrar();
  PluginRegistrar(const PluginRegistrar&) = delete;
  PluginRegistrar& operator=(const PluginRegistrar&) = delete;

  // Keeps the object until ClearPlugins. Null, an object that is kept already, and any object once
  // the registrar's destruction has begun are ignored.
  void AddPlugin(const std::shared_ptr<Plugin>& plugin);

  // Calls Release on each plug-in, in the order of their addresses, and then drops them all. A
  // plug-in's Release may call AddPlugin and ClearPlugins. A plug-in that is added within Release
  // is kept, except during the registrar's destruction, which accepts no plug-ins.
  void ClearPlugins();

  // The directory of the application's libraries. Empty when there is no application.
  std::filesystem::path GetLibraryPath() const;

  // The objects over the embedder's tables. Null means that the embedder does not offer the table.
  // They live as long as the registrar; a copy of the application's pointer keeps that object
  // longer.
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
  bool is_ending_ = false;  // Set when the destruction has begun.
};

// The registrars of the process, by their engines.
class FORGE_EXPORT PluginRegistrarManager {
 public:
  // Returns the only manager of the process, which is never destroyed.
  static PluginRegistrarManager* GetInstance();

  // Returns the registrar of the context's engine; the first call makes it. Null when the context
  // is null, when it names no engine, and when the engine has ended within the call.
  //
  // The registrar lives until the embedder reports the end of the engine. An embedder that offers
  // no EngineDestroyedSubscribe never does, so its registrars live as long as the process.
  PluginRegistrar* GetRegistrarImpl(FlutterOstrelPluginContext* context);

  // The embedder calls this function when the engine is about to be destroyed. It destroys the
  // engine's registrar; an unknown engine is ignored.
  static void OnRegistrarDestroyed(_FlutterOstrelEngine* engine);

 private:
  PluginRegistrarManager() = default;

  // Null when the engine has no registrar.
  PluginRegistrar* Find(_FlutterOstrelEngine* engine) const;

  std::map<_FlutterOstrelEngine*, std::unique_ptr<PluginRegistrar>> registrars_;
};

}  // namespace cw
