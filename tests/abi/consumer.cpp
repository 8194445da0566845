// A program that knows the shared library alone, as a plug-in does: it derives from exported
// classes, catches what the library throws, and uses header templates. It asserts what must hold.
#include <cassert>
#include <memory>
#include <stdexcept>

#include "cw/standard_codec_serializer.h"
#include "cw/standard_message_codec.h"
#include "forge/library_api.h"
#include "forge/object.h"
#include "forge/signals.h"
#include "src/tavo_capi.h"

namespace {

class RunAtOnce final : public forge::IDispatcher {
 public:
  void Invoke(const std::function<void()>& task, uint32_t) override { task(); }
};

struct ThingRef;
struct Thing final : forge::Object<Thing, ThingRef*> {
  Thing() : Object(std::make_shared<RunAtOnce>()) {}
  static std::shared_ptr<Thing> Create() { return Object::Create(); }
};

void DerivesFromExportedClasses() {
  const auto thing = Thing::Create();
  bool ran = false;
  thing->Invoke([&ran] { ran = true; }, 0);
  assert(ran);
  assert(Thing::FromRef(thing->GetRef()) == thing);
}

void BindsTablesAndCatchesWhatTheirEntriesThrow() {
  const auto library = forge::Library::Create("libtavo.so");
  using Api = forge::LibraryApi<TAVOProcTable>;
  const auto api = Api::Create(library, library->Resolve<Api::Loader>("TAVOProcTableLoad"));
  assert(forge::Covered(api->Get(), &TAVOProcTable::RpcServerProcTableLoad));
  TAVORpcClientProcTable table{};
  api->Get().RpcClientProcTableLoad(&table, sizeof table);
  try {
    table.StartTask(nullptr, nullptr, nullptr, nullptr);
    assert(false);
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
  const cw::EncodableList list{"x", cw::CustomEncodableValue(Colour{7})};
  const auto bytes = codec.EncodeMessage(list);
  const auto back = codec.DecodeMessage(bytes.GetData(), bytes.GetSize());
  const auto& colour = back->Get<cw::EncodableList>()[1];
  assert(colour.Get<cw::CustomEncodableValue>().GetIf<Colour>()->red == 7);
  try {
    static_cast<void>(colour.Get<bool>());
    assert(false);
  } catch (const std::bad_variant_access&) {
  }
}

void UsesSignalsAndSlots() {
  int sum = 0;
  forge::OwnedRunOnceSignal<int> signal;
  signal.Subscribe([&sum](int value) { sum += value; });
  signal.Emit(2);
  auto slot = forge::CreateSlot<TAVOOpenUriSlot, bool>([&sum](bool success) { sum += success; });
  slot.callback(slot.user_data, true);
  slot.release(slot.user_data);
  assert(sum == 3);
}

}  // namespace

int main() {
  DerivesFromExportedClasses();
  BindsTablesAndCatchesWhatTheirEntriesThrow();
  ExtendsTheCodec();
  UsesSignalsAndSlots();
}
