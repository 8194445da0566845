// A program that knows the shared library alone, as a plug-in does: it derives from exported
// classes, catches what the library throws, and uses header templates. Ends with 0 when all works.
#include <cstdio>
#include <memory>
#include <stdexcept>

#include "cw/encodable_value.h"
#include "cw/plugin_registrar.h"
#include "cw/reply_manager.h"
#include "cw/standard_codec_serializer.h"
#include "cw/standard_message_codec.h"
#include "cw/standard_method_codec.h"
#include "forge/buffer.h"
#include "forge/dispatcher.h"
#include "forge/library_api.h"
#include "forge/object.h"
#include "forge/resources_cache.h"
#include "forge/signals.h"
#include "src/tavo_capi.h"

namespace {

int failures = 0;

void Check(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "consumer: failed: %s\n", what);
  ++failures;
}

class RunAtOnce final : public forge::IDispatcher {
 public:
  void Invoke(const std::function<void()>& task, uint32_t) override { task(); }
};

struct ThingRef;
class Thing final : public forge::Object<Thing, ThingRef*> {
  struct PrivateTag {
    explicit PrivateTag() = default;
  };

 public:
  explicit Thing(PrivateTag) : Object(std::make_shared<RunAtOnce>()) {}
  static std::shared_ptr<Thing> Create() { return Object::Create(PrivateTag{}); }
};

class CountingListener final : public forge::IListener<int> {
 public:
  explicit CountingListener(int* sum) : sum_(sum) {}
  void Invoke(int value) const override { *sum_ += value; }
  void InvokeOnce(int value) override { *sum_ += value; }

 private:
  int* const sum_;
};

void DerivesFromExportedClasses() {
  const auto thing = Thing::Create();
  bool ran = false;
  thing->Invoke([&ran] { ran = true; }, 0);
  Check(ran, "a plug-in's dispatcher runs tasks");
  Check(Thing::FromRef(thing->GetRef()) == thing, "a plug-in's object resolves");
}

void CatchesLibraryExceptions() {
  TAVOProcTable top{};
  TAVORpcClientProcTable table{};
  TAVOProcTableLoad(&top, sizeof top);
  top.RpcClientProcTableLoad(&table, sizeof table);
  try {
    table.StartTask(nullptr, nullptr, nullptr, nullptr);
    Check(false, "a null text throws");
  } catch (const std::logic_error&) {
  }
  try {
    forge::ResourcesCache cache;
    cache.AppendStr(cache.CreateChunk(), std::string_view(nullptr, 1));
    Check(false, "a null text with a length throws");
  } catch (const std::logic_error&) {
  }
}

// A codec extension for one type of its own.
struct Colour {
  uint8_t red;
};
class ColourSerializer final : public cw::StandardCodecSerializer {
 public:
  void WriteValue(const cw::EncodableValue& value, cw::ByteStreamWriter* stream) const override {
    const auto* custom = value.GetIf<cw::CustomEncodableValue>();
    const auto* colour = custom ? custom->GetIf<Colour>() : nullptr;
    if (!colour) return StandardCodecSerializer::WriteValue(value, stream);
    stream->WriteByte(200);
    stream->WriteByte(colour->red);
  }

 protected:
  cw::EncodableValue ReadValueOfType(uint8_t type, cw::ByteStreamReader* stream) const override {
    if (type != 200) return StandardCodecSerializer::ReadValueOfType(type, stream);
    return cw::CustomEncodableValue(Colour{stream->ReadByte()});
  }
};

class Answer final : public cw::MethodResult<cw::EncodableValue> {
 public:
  int32_t number = 0;

 private:
  void SuccessInternal(const cw::EncodableValue* result) override {
    number = result->Get<int32_t>();
  }
  void ErrorInternal(const std::string&, const std::string&, const cw::EncodableValue*) override {}
  void NotImplementedInternal() override {}
};

void UsesValuesAndCodecs() {
  static const ColourSerializer serializer;
  const cw::EncodableValue value = cw::EncodableMap{
      {"list", cw::EncodableList{1, 2.5, "three", cw::CustomEncodableValue(Colour{7})}},
      {cw::EncodableList{cw::EncodableMap{{1, 2}}}, std::vector<uint8_t>{1}}};
  const auto& codec = cw::StandardMessageCodec::GetInstance(&serializer);
  const auto bytes = codec.EncodeMessage(value);
  const auto back = codec.DecodeMessage(bytes.GetData(), bytes.GetSize());
  const auto& list = back->Get<cw::EncodableMap>().at("list").Get<cw::EncodableList>();
  Check(list[3].Get<cw::CustomEncodableValue>().GetIf<Colour>()->red == 7, "a codec extension");
  Check(*back != value && (*back < value || value < *back), "custom values are themselves alone");
  Check(cw::EncodableValue::Deserialize(cw::EncodableValue("x").Serialize()) == "x", "values");
  try {
    static_cast<void>(value.Get<bool>());
    Check(false, "a wrong alternative throws");
  } catch (const std::bad_variant_access&) {
  }
  const auto& method_codec = cw::StandardMethodCodec::GetInstance();
  const cw::EncodableValue seven = 7;
  const auto envelope = method_codec.EncodeSuccessEnvelope(&seven);
  Answer answer;
  method_codec.DecodeAndProcessResponseEnvelope(envelope.GetData(), envelope.GetSize(), &answer);
  Check(answer.number == 7, "a plug-in's method result");
}

void UsesHeaderTemplates() {
  int sum = 0;
  forge::OwnedRunOnceSignal<int> signal;
  const auto listener = std::make_shared<CountingListener>(&sum);
  signal.Attach(listener);
  signal.Subscribe([&sum](int value) { sum += value; });
  signal.Emit(2);
  auto slot = forge::CreateSlot<TAVOOpenUriSlot, bool>([&sum](bool success) { sum += success; });
  slot.callback(slot.user_data, true);
  slot.release(slot.user_data);
  Check(sum == 5, "signals and slots");
  Check(forge::Buffer::FromBase64("Zm9v").GetSize() == 3, "buffers");
}

class CountingPlugin final : public cw::Plugin {
 public:
  explicit CountingPlugin(int* releases) : releases_(releases) {}
  void Release() override { ++*releases_; }

 private:
  int* const releases_;
};

void UsesTheEmbeddersObjects() {
  FlutterOstrelPluginContext context{};
  context.size = sizeof context;
  context.engine = reinterpret_cast<_FlutterOstrelEngine*>(&context);
  context.ApplicationProcTableLoad = [](auto...) { return 1u; };
  context.application = reinterpret_cast<_FlutterOstrelApplication*>(&context);
  auto* const registrar = cw::PluginRegistrarManager::GetInstance()->GetRegistrarImpl(&context);
  int releases = 0;
  registrar->AddPlugin(std::make_shared<CountingPlugin>(&releases));
  const std::shared_ptr<forge::IDispatcher> dispatcher = registrar->GetApplication();
  Check(dispatcher && !registrar->GetView() && registrar->GetLibraryPath().empty(), "a registrar");
  cw::PluginRegistrarManager::OnRegistrarDestroyed(context.engine);
  Check(releases == 1, "a plug-in's own object is released");
  int answers = 0;
  cw::internal::ReplyManager([&answers](const uint8_t*, size_t) {
    ++answers;
  }).SendResponseData(nullptr);
  Check(answers == 1, "a reply");
}

void BindsTables() {
  const auto library = forge::Library::Create("libtavo.so");
  using Api = forge::LibraryApi<TAVOProcTable>;
  const auto api =
      library ? Api::Create(library, library->Resolve<Api::Loader>("TAVOProcTableLoad")) : nullptr;
  Check(api && forge::Covered(api->Get(), &TAVOProcTable::RpcServerProcTableLoad),
        "a table of a library");
}

}  // namespace

int main() {
  DerivesFromExportedClasses();
  CatchesLibraryExceptions();
  UsesHeaderTemplates();
  UsesValuesAndCodecs();
  UsesTheEmbeddersObjects();
  BindsTables();
  return failures != 0;
}
