// A complete plug-in: it answers calls on the channel "hello" and ends the application when asked.
//
//   greet {"name": text} -> {"greeting": text, "libraries": path}
//   close                -> null, and the application ends
//
// Run it headless: tavo-embed libhello_plugin.so --description hello.json
#include <cw/map_access.h>
#include <cw/method_channel.h>
#include <cw/plugin_registrar.h>
#include <platform/flutter_ostrel/flutter_ostrel.h>

#include <memory>
#include <string>

namespace {

class HelloPlugin final : public cw::Plugin {
 public:
  explicit HelloPlugin(cw::PluginRegistrar* registrar)
      : registrar_(registrar), channel_(registrar->GetMessenger(), "hello") {
    channel_.SetHandler([this](const auto& call, auto result) {
      if (call.GetMethodName() == "greet") return Greet(call.GetArguments(), *result);
      if (call.GetMethodName() != "close") return result->NotImplemented();
      result->Success();
      CloseLater();
    });
  }

 private:
  void Greet(const cw::EncodableValue* arguments, cw::MethodResult<cw::EncodableValue>& result) {
    const auto name = cw::Get<std::string>(arguments, "name");
    if (!name) return result.Error("no-name", "A greeting needs the text \"name\".");
    const cw::EncodableMap answer = {{"greeting", "Hello, " + *name + "!"},
                                     {"libraries", registrar_->GetLibraryPath().string()}};
    result.Success(answer);
  }

  // After the answer was sent.
  void CloseLater() {
    const auto application = registrar_->GetApplication();
    application->EnqueueTask(
        [application, view = registrar_->GetView()] {
          if (view) view->CloseWindow("closed");
          application->Exit(0);
        },
        0);
  }

  cw::PluginRegistrar* const registrar_;  // Owns this object.
  cw::MethodChannel<> channel_;
};

}  // namespace

uint32_t FlutterOstrelPluginRegister(FlutterOstrelPluginContext* context) {
  auto* const registrar = cw::PluginRegistrarManager::GetInstance()->GetRegistrarImpl(context);
  if (!registrar || !registrar->GetMessenger() || !registrar->GetApplication()) return 0;
  registrar->AddPlugin(std::make_shared<HelloPlugin>(registrar));
  return 1;
}
