// Answers calls on the channel "sample":
//
//   greet {"name": text} -> text
//   close                -> null, and the application ends
#include <cw/map_access.h>
#include <cw/method_channel.h>
#include <cw/plugin_registrar.h>
#include <platform/flutter_ostrel/flutter_ostrel.h>

#include <memory>
#include <string>

namespace {

class SamplePlugin final : public cw::Plugin {
 public:
  explicit SamplePlugin(cw::PluginRegistrar* registrar)
      : application_(registrar->GetApplication()), channel_(registrar->GetMessenger(), "sample") {
    channel_.SetHandler([this](const auto& call, auto result) {
      if (call.GetMethodName() == "greet") return Greet(call.GetArguments(), *result);
      if (call.GetMethodName() != "close") return result->NotImplemented();
      result->Success();
      application_->EnqueueTask([application = application_] { application->Exit(0); }, 0);
    });
  }

 private:
  static void Greet(const cw::EncodableValue* arguments,
                    cw::MethodResult<cw::EncodableValue>& result) {
    const auto name = cw::Get<std::string>(arguments, "name");
    if (!name) return result.Error("no-name", "A greeting needs the text \"name\".");
    result.Success("Hello, " + *name + "!");
  }

  const std::shared_ptr<cw::ApplicationWrapper> application_;
  cw::MethodChannel<> channel_;
};

}  // namespace

uint32_t FlutterOstrelPluginRegister(FlutterOstrelPluginContext* context) {
  auto* const registrar = cw::PluginRegistrarManager::GetInstance()->GetRegistrarImpl(context);
  if (!registrar || !registrar->GetMessenger() || !registrar->GetApplication()) return 0;
  registrar->AddPlugin(std::make_shared<SamplePlugin>(registrar));
  return 1;
}
