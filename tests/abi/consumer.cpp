// A program that knows the shared library alone, as a plug-in does: it derives from exported
// classes, catches what the library throws, and uses header templates. Ends with 0 when all works.
#include <cstdio>
#include <memory>
#include <stdexcept>

#include "cw/standard_codec_serializer.h"
#include "cw/standard_message_codec.h"
#include "forge/library_api.h"
#include "forge/object.h"
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
    static_cast<void>(cw::EncodableValue().Get<bool>());
    Check(false, "a wrong alternative throws");
  } catch (const std::bad_variant_access&) {
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
    if (!custom) return StandardCodecSerializer::WriteValue(value, stream);
    stream->WriteByte(200);
    stream->WriteByte(custom->GetIf<Colour>()->red);
  }

 protected:
  cw::EncodableValue ReadValueOfType(uint8_t type, cw::ByteStreamReader* stream) const override {
    if (type != 200) return StandardCodecSerializer::ReadValueOfType(type, stream);
    return cw::CustomEncodableValue(Colour{stream->ReadByte()});
  }
};

void ExtendsTheCodec() {
  static const ColourSerializer serializer;
  const auto& codec = cw::StandardMessageCodec::GetInstance(&serializer);
  const auto bytes =
      codec.EncodeMessage(cw::EncodableList{"x", cw::CustomEncodableValue(Colour{7})});
  const auto back = codec.DecodeMessage(bytes.GetData(), bytes.GetSize());
  const auto& list = back->Get<cw::EncodableList>();
  Check(list[1].Get<cw::CustomEncodableValue>().GetIf<Colour>()->red == 7, "a codec extension");
}

void UsesHeaderTemplates() {
  int sum = 0;
  forge::OwnedRunOnceSignal<int> signal;
  signal.Subscribe([&sum](int value) { sum += value; });
  signal.Emit(2);
  auto slot = forge::CreateSlot<TAVOOpenUriSlot, bool>([&sum](bool success) { sum += success; });
  slot.callback(slot.user_data, true);
  slot.release(slot.user_data);
  Check(sum == 3, "signals and slots");
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
  ExtendsTheCodec();
  UsesHeaderTemplates();
  BindsTables();
  return failures != 0;
}
