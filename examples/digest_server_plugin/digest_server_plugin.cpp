// The task "digest" as a plug-in. An embedder that is started as a task loads it, and the starter
// asks it for the digests of files. digest_server.h has the messages.
#include <cw/plugin_registrar.h>
#include <platform/flutter_ostrel/flutter_ostrel.h>
#include <wrapper/manager_wrapper.h>

#include <memory>

#include "digest_server.h"

namespace {

class DigestServerPlugin final : public cw::Plugin {
 public:
  // False, with an error line of the library, when there is no server.
  bool Begin(cw::PluginRegistrar* registrar) {
    manager_ = tavo::ManagerWrapper::Create(registrar);
    auto server = manager_ ? manager_->CreateRpcServer() : nullptr;
    if (!server) return false;
    server_ = std::make_unique<digest::DigestServer>(registrar->GetApplication(), server);
    return true;
  }

 private:
  // The engine is about to end.
  void Release() override {
    server_.reset();
    manager_.reset();
  }

  std::unique_ptr<tavo::ManagerWrapper> manager_;
  std::unique_ptr<digest::DigestServer> server_;
};

}  // namespace

uint32_t FlutterOstrelPluginRegister(FlutterOstrelPluginContext* context) {
  auto* const registrar = cw::PluginRegistrarManager::GetInstance()->GetRegistrarImpl(context);
  if (!registrar || !registrar->GetApplication()) return 0;
  const auto plugin = std::make_shared<DigestServerPlugin>();
  if (!plugin->Begin(registrar)) return 0;
  registrar->AddPlugin(plugin);
  return 1;
}
