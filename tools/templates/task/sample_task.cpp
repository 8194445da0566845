// The task "sample": an application that others start and ask. sample_messages.h has the messages.
#include <cw/plugin_registrar.h>
#include <kit/responder.h>
#include <platform/flutter_ostrel/flutter_ostrel.h>
#include <wrapper/manager_wrapper.h>

#include <memory>

#include "sample_messages.h"

namespace {

class SampleTask final : public cw::Plugin {
 public:
  // False, with an error line of the library, when there is no server.
  bool Begin(cw::PluginRegistrar* registrar) {
    manager_ = tavo::ManagerWrapper::Create(registrar);
    auto server = manager_ ? manager_->CreateRpcServer() : nullptr;
    if (!server) return false;
    responder_ = tavo::kit::Responder::Create(server);
    responder_->Handle("greet", [](const sample_messages::Name& name,
                                   const tavo::kit::Request<sample_messages::Greeting>& request) {
      request.Finish({"Hello, " + name.name + "!"});
    });
    responder_->Run();
    return true;
  }

 private:
  // The engine is about to end.
  void Release() override {
    responder_.reset();
    manager_.reset();
  }

  std::unique_ptr<tavo::ManagerWrapper> manager_;
  std::shared_ptr<tavo::kit::Responder> responder_;
};

}  // namespace

uint32_t FlutterOstrelPluginRegister(FlutterOstrelPluginContext* context) {
  auto* const registrar = cw::PluginRegistrarManager::GetInstance()->GetRegistrarImpl(context);
  if (!registrar) return 0;
  const auto plugin = std::make_shared<SampleTask>();
  if (!plugin->Begin(registrar)) return 0;
  registrar->AddPlugin(plugin);
  return 1;
}
