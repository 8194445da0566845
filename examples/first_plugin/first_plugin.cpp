// Asks the task "digest" for the digest of a file, prints it and ends.
#include <cw/map_access.h>
#include <cw/plugin_registrar.h>
#include <wrapper/manager_wrapper.h>

#include <cstdio>
#include <filesystem>
#include <memory>

struct FirstPlugin : cw::Plugin {
  std::unique_ptr<tavo::ManagerWrapper> manager;
  std::shared_ptr<flrpc::IClient> digest;
};

uint32_t FlutterOstrelPluginRegister(FlutterOstrelPluginContext* context) {
  auto* const registrar = cw::PluginRegistrarManager::GetInstance()->GetRegistrarImpl(context);
  const auto plugin = std::make_shared<FirstPlugin>();
  plugin->manager = tavo::ManagerWrapper::Create(registrar);
  if (!plugin->manager) return 0;  // An error line says why.
  registrar->AddPlugin(plugin);
  plugin->digest = plugin->manager->CreateIpcClient("digest");  // Starts the task.
  if (!plugin->digest) return 0;
  const auto on_answer = [application = registrar->GetApplication()](const auto& response) {
    const auto sum = cw::Get<std::string>(response.GetResult(), "sha256");
    std::puts(sum ? sum->c_str() : "There is no digest.");
    application->Exit(sum ? 0 : 1);
  };
  const auto path = std::filesystem::absolute(".editorconfig").string();
  plugin->digest->SendRequest("digest", cw::EncodableMap{{"path", path}}, on_answer);
  plugin->digest->Run();
  return 1;
}
