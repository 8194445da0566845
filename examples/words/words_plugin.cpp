// Answers calls on the channel "words" with what the task "words" says:
//
//   count {"path": text} -> {"lines": integer, "words": integer}
//   close                -> null, and the application ends
//
// Meanwhile it tells Dart "progress", the part that is done.
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

#include "words_messages.h"

namespace {

using namespace std::chrono_literals;
using Reply = std::shared_ptr<cw::MethodResult<cw::EncodableValue>>;

class WordsPlugin final : public cw::Plugin {
 public:
  // False, with an error line of the library, when the task cannot be started.
  bool Begin(cw::PluginRegistrar* registrar) {
    manager_ = tavo::ManagerWrapper::Create(registrar);
    if (!manager_) return false;
    application_ = registrar->GetApplication();
    clock_ = std::make_shared<tavo::kit::ThreadClock>(application_);
    caller_ = tavo::kit::Caller::Create(manager_->CreateIpcClient("words"), clock_);
    if (!caller_) return false;
    caller_->Run();
    channel_ = std::make_unique<cw::MethodChannel<>>(registrar->GetMessenger(), "words");
    channel_->SetHandler([this](const auto& call, auto result) {
      if (call.GetMethodName() == "count") return Count(call.GetArguments(), std::move(result));
      if (call.GetMethodName() != "close") return result->NotImplemented();
      result->Success();
      application_->EnqueueTask([application = application_] { application->Exit(0); }, 0);
    });
    return true;
  }

 private:
  void Count(const cw::EncodableValue* arguments, const Reply& reply) {
    const auto path = cw::Get<std::string>(arguments, "path");
    if (!path) return reply->Error("no-path", "A count needs the text \"path\".");
    caller_->Call<words_messages::Words>(
        "count", words_messages::FileName{*path},
        [reply](tavo::kit::Result<words_messages::Words> words) {
          if (words) return reply->Success(tavo::kit::From(*words));
          reply->Error("task", words.GetFailure().error.message);
        },
        tavo::kit::CallOptions().Timeout(10s).ProgressRenews().OnProgress<double>(
            [this](double part) { channel_->Invoke("progress", cw::EncodableValue(part)); }));
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
  const auto plugin = std::make_shared<WordsPlugin>();
  if (!plugin->Begin(registrar)) return 0;
  registrar->AddPlugin(plugin);
  return 1;
}
