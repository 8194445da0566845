// A complete plug-in: it answers calls on the channel "hello" and ends the application when asked.
//
//   greet {"name": text} -> {"greeting": text, "libraries": path}
//   close                -> null, and the application ends
//
// Run it headless: tavo-embed libhello_plugin.so --description hello.json
#include <cw/plugin_registrar.h>
#include <cw/reply_manager.h>
#include <cw/standard_method_codec.h>
#include <platform/flutter_ostrel/flutter_ostrel.h>

#include <memory>
#include <string>
#include <utility>

namespace {

using cw::EncodableMap;
using cw::EncodableValue;

const cw::StandardMethodCodec& Codec() { return cw::StandardMethodCodec::GetInstance(); }

// The result of a call, as the answer to the message that brought it.
class CallResult final : public cw::MethodResult<EncodableValue> {
 public:
  explicit CallResult(cw::BinaryReply reply) : reply_(std::move(reply)) {}

 private:
  void SuccessInternal(const EncodableValue* result) override {
    reply_.SendResponseData(Codec().EncodeSuccessEnvelope(result).Extract().get());
  }
  void ErrorInternal(const std::string& code, const std::string& message,
                     const EncodableValue* details) override {
    reply_.SendResponseData(Codec().EncodeErrorEnvelope(code, message, details).Extract().get());
  }
  void NotImplementedInternal() override { reply_.SendResponseData(nullptr); }

  cw::internal::ReplyManager reply_;
};

class HelloPlugin final : public cw::Plugin {
 public:
  explicit HelloPlugin(cw::PluginRegistrar* registrar) : registrar_(registrar) {
    registrar_->GetMessenger()->SetMessageHandler(
        "hello", [this](const uint8_t* data, size_t size, cw::BinaryReply reply) {
          CallResult result(std::move(reply));
          const auto call = Codec().DecodeMethodCall(data, size);
          if (!call) return result.NotImplemented();
          Answer(*call, &result);
        });
  }

  void Release() override { registrar_->GetMessenger()->SetMessageHandler("hello", nullptr); }

 private:
  void Answer(const cw::MethodCall<EncodableValue>& call, CallResult* result) {
    if (call.GetMethodName() == "greet") {
      Greet(call.GetArguments(), result);
    } else if (call.GetMethodName() == "close") {
      result->Success();
      CloseLater();
    } else {
      result->NotImplemented();
    }
  }

  void Greet(const EncodableValue* arguments, CallResult* result) {
    const auto* map = arguments ? arguments->GetIf<EncodableMap>() : nullptr;
    const auto found = map ? map->find("name") : EncodableMap::const_iterator();
    const auto* name = map && found != map->end() ? found->second.GetIf<std::string>() : nullptr;
    if (!name) return result->Error("no-name", "A greeting needs the text \"name\".");
    const EncodableMap answer = {{"greeting", "Hello, " + *name + "!"},
                                 {"libraries", registrar_->GetLibraryPath().string()}};
    result->Success(answer);
  }

  // Once the answer is on its way.
  void CloseLater() {
    const auto application = registrar_->GetApplication();
    auto* const view = registrar_->GetView();
    application->EnqueueTask(
        [application, view] {
          if (view) view->CloseWindow("closed");
          application->Exit(0);
        },
        0);
  }

  cw::PluginRegistrar* const registrar_;  // Owns this.
};

}  // namespace

uint32_t FlutterOstrelPluginRegister(FlutterOstrelPluginContext* context) {
  auto* const registrar = cw::PluginRegistrarManager::GetInstance()->GetRegistrarImpl(context);
  if (!registrar || !registrar->GetMessenger() || !registrar->GetApplication()) return 0;
  registrar->AddPlugin(std::make_shared<HelloPlugin>(registrar));
  return 1;
}
