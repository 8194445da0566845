// Answers calls on the channel "sample" with what the task "sample" says:
//
//   greet {"name": text} -> text
//   close                -> null, and the application ends
#include <cw/map_access.h>
#include <cw/method_channel.h>
#include <cw/plugin_registrar.h>
#include <kit/caller.h>
#include <kit/thread_clock.h>
#include <platform/flutter_ostrel/flutter_ostrel.h>
#include <wrapper/manager_wrapper.h>

#include <chrono>
#include <memory>
#include <string>

#include "sample_messages.h"

namespace {

using namespace std::chrono_literals;
using Reply = std::shared_ptr<cw::MethodResult<cw::EncodableValue>>;

class SamplePlugin final : public cw::Plugin {
 public:
  // False, with an error line of the library, when the task cannot be started.
  bool Begin(cw::PluginRegistrar* registrar) {
    manager_ = tavo::ManagerWrapper::Create(registrar);
    if (!manager_) return false;
    application_ = registrar->GetApplication();
    clock_ = std::make_shared<tavo::kit::ThreadClock>(application_);
    caller_ = tavo::kit::Caller::Create(manager_->CreateIpcClient("sample"), clock_);
    if (!caller_) return false;
    caller_->Run();
    channel_ = std::make_unique<cw::MethodChannel<>>(registrar->GetMessenger(), "sample");
    channel_->SetHandler([this](const auto& call, auto result) {
      if (call.GetMethodName() == "greet") return Greet(call.GetArguments(), std::move(result));
      if (call.GetMethodName() != "close") return result->NotImplemented();
      result->Success();
      application_->EnqueueTask([application = application_] { application->Exit(0); }, 0);
    });
    return true;
  }

 private:
  void Greet(const cw::EncodableValue* arguments, Reply reply) {
    const auto name = cw::Get<std::string>(arguments, "name");
    if (!name) return reply->Error("no-name", "A greeting needs the text \"name\".");
    caller_->Call<sample_messages::Greeting>(
        "greet", sample_messages::Name{*name},
        [reply](tavo::kit::Result<sample_messages::Greeting> greeting) {
          if (greeting) return reply->Success(greeting->text);
          reply->Error("task", greeting.GetFailure().error.message);
        },
        tavo::kit::CallOptions().Timeout(10s));
  }

  // The engine is about to end.
  void Release() override {
    channel_.reset();
    caller_.reset();
    clock_.reset();
    manager_.reset();
  }

  std::unique_ptr<tavo::ManagerWrapper> manager_;
  std::shared_ptr<cw::ApplicationWrapper> application_;
  std::shared_ptr<tavo::kit::ThreadClock> clock_;
  std::shared_ptr<tavo::kit::Caller> caller_;
  std::unique_ptr<cw::MethodChannel<>> channel_;
};

}  // namespace

uint32_t FlutterOstrelPluginRegister(FlutterOstrelPluginContext* context) {
  auto* const registrar = cw::PluginRegistrarManager::GetInstance()->GetRegistrarImpl(context);
  if (!registrar || !registrar->GetMessenger() || !registrar->GetApplication()) return 0;
  const auto plugin = std::make_shared<SamplePlugin>();
  if (!plugin->Begin(registrar)) return 0;
  registrar->AddPlugin(plugin);
  return 1;
}
